#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace fixtures {

// The whole file, or empty when it cannot be read.
QByteArray readFile(const QString& path);

// Creates or truncates the file and writes `contents`. Returns false on any failure.
bool writeFile(const QString& path, const QByteArray& contents);

// Every name in the folder, hidden ones included (so a leftover temporary file shows), sorted by name.
QStringList folderEntries(const QString& folder);

} // namespace fixtures
