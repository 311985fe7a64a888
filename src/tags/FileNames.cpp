#include "tags/FileNames.h"

namespace {

// The position of the dot that starts the extension, or -1.
qsizetype extensionDot(QStringView fileName) {
    const qsizetype dot = fileName.lastIndexOf(u'.');
    return dot > 0 ? dot : -1;
}

} // namespace

namespace FileNames {

QString extension(QStringView fileName) {
    const qsizetype dot = extensionDot(fileName);
    return dot < 0 ? QString() : fileName.sliced(dot + 1).toString().toLower();
}

QStringView withoutExtension(QStringView fileName) {
    const qsizetype dot = extensionDot(fileName);
    return dot < 0 ? fileName : fileName.first(dot);
}

} // namespace FileNames
