#pragma once

#include <QSettings>
#include <QTemporaryDir>

namespace fixtures {

// A temporary home for one test case: XDG_DATA_HOME points into it, and the settings are an INI file of its
// own, so nothing touches the user's real data or settings.
struct ScratchHome {
    ScratchHome() { qputenv("XDG_DATA_HOME", dataPath().toUtf8()); }

    // A path under the data folder, or the folder itself.
    QString dataPath(const QString& relativePath = {}) const {
        return dir.filePath(relativePath.isEmpty() ? QStringLiteral("data") : "data/" + relativePath);
    }

    QTemporaryDir dir;
    QSettings settings{dir.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat};
};

} // namespace fixtures
