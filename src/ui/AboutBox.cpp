#include "ui/AboutBox.h"

#include "OrvelleVersion.h"

#include <QApplication>
#include <QBoxLayout>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>

void showAboutBox(QWidget* parent) {
    auto* box = new QDialog(parent);
    box->setObjectName(QStringLiteral("about"));
    box->setWindowTitle(QStringLiteral("About Orvelle"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    auto* column = new QVBoxLayout(box);
    column->setSpacing(8);
    column->setContentsMargins(32, 24, 32, 16);

    auto* icon = new QLabel(box);
    icon->setPixmap(QApplication::windowIcon().pixmap(QSize(96, 96), box->devicePixelRatioF()));
    auto* name = new QLabel(QStringLiteral("Orvelle"), box);
    QFont headline = name->font();
    headline.setPointSizeF(headline.pointSizeF() * 1.4);
    headline.setWeight(QFont::Bold);
    name->setFont(headline);
    auto* version = new QLabel(QStringLiteral("Version %1").arg(QLatin1String(orvelle::build::version)), box);
    auto* credits = new QLabel(box);
    credits->setObjectName(QStringLiteral("credits"));
    credits->setTextFormat(Qt::RichText);
    credits->setText(QStringLiteral("Created by <a href=\"%1\">the Orvelle developers</a>")
                         .arg(QString::fromUtf8(orvelle::build::homePage).toHtmlEscaped()));
    credits->setOpenExternalLinks(true);
    credits->setForegroundRole(QPalette::PlaceholderText);
    QFont small = credits->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    credits->setFont(small);
    for (QLabel* label : {icon, name, version, credits}) {
        label->setAlignment(Qt::AlignCenter);
        column->addWidget(label);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, box);
    buttons->setCenterButtons(true);
    QObject::connect(buttons, &QDialogButtonBox::rejected, box, &QDialog::reject);
    column->addWidget(buttons);
    box->open();
    box->raise();
    box->activateWindow();
}
