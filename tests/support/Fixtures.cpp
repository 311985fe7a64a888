#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QStandardPaths>

namespace fixtures {

ToolResult run(const QString& program, const QStringList& arguments, int timeoutMs) {
    QProcess process;
    process.start(program, arguments);
    ToolResult result;
    if (!process.waitForStarted(timeoutMs))
        return result;
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return result;
}

bool haveTool(const QString& program) {
    return !QStandardPaths::findExecutable(program).isEmpty();
}

QString systemPython() {
    return QFileInfo::exists(QStringLiteral("/usr/bin/python3")) ? QStringLiteral("/usr/bin/python3")
                                                                 : QStringLiteral("python3");
}

// ffmpeg's options for a file of this (lower-case) extension.
static QStringList codecFor(const QString& extension) {
    static const QHash<QString, QStringList> codecs = {{"mp3", {"-c:a", "libmp3lame", "-b:a", "64k"}},
                                                       {"m4a", {"-c:a", "aac", "-b:a", "64k", "-f", "mp4"}},
                                                       {"aac", {"-c:a", "aac", "-b:a", "64k", "-f", "adts"}},
                                                       {"aiff", {"-c:a", "pcm_s16be", "-f", "aiff"}},
                                                       {"wav", {"-c:a", "pcm_s16le", "-f", "wav"}},
                                                       {"caf", {"-c:a", "pcm_s16le", "-f", "caf"}},
                                                       {"alac", {"-c:a", "alac", "-f", "caf"}},
                                                       {"flac", {"-c:a", "flac", "-f", "flac"}},
                                                       {"au", {"-c:a", "pcm_s16be", "-f", "au"}}};
    static const QHash<QString, QString> sameAs = {{"m4b", "m4a"},  {"mp4", "m4a"},   {"adts", "aac"},
                                                   {"aif", "aiff"}, {"aifc", "aiff"}, {"snd", "au"}};
    return codecs.value(sameAs.value(extension, extension));
}

bool makeAudio(const QString& path, double seconds, const QStringList& extraArguments) {
    const QString tone = QStringLiteral("sine=frequency=440:sample_rate=44100:duration=%1").arg(seconds);
    const QStringList arguments =
        QStringList{"-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i", tone, "-ac", "2"} +
        codecFor(QFileInfo(path).suffix().toLower()) + extraArguments + QStringList{path};
    return run(QStringLiteral("ffmpeg"), arguments).exitCode == 0 && QFileInfo(path).size() > 0;
}

QString corpusFile(const QString& relativePath) {
    const QString path = QDir(QStringLiteral(ORVELLE_SHARED_CORPUS)).filePath(relativePath);
    return QFileInfo::exists(path) ? QDir::cleanPath(path) : QString();
}

qint64 residentKiB() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

} // namespace fixtures
