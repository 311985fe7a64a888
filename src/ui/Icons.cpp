#include "ui/Icons.h"

QIcon Icons::named(const QString& freedesktopName) {
    return QIcon::fromTheme(freedesktopName);
}
