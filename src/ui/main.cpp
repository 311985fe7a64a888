#include <QApplication>
#include <QTextStream>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Orvelle"));
    QApplication::setApplicationName(QStringLiteral("Orvelle"));
    QTextStream(stdout) << "Orvelle's window is not built yet; the libraries and tests are.\n";
    return 0;
}
