#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
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

static QStringList codecFor(const QString& extension) {
    const QString ext = extension.toLower();
    if (ext == "mp3")
        return {"-c:a", "libmp3lame", "-b:a", "64k"};
    if (ext == "m4a" || ext == "m4b" || ext == "mp4")
        return {"-c:a", "aac", "-b:a", "64k", "-f", "mp4"};
    if (ext == "aac" || ext == "adts")
        return {"-c:a", "aac", "-b:a", "64k", "-f", "adts"};
    if (ext == "aif" || ext == "aiff" || ext == "aifc")
        return {"-c:a", "pcm_s16be", "-f", "aiff"};
    if (ext == "wav")
        return {"-c:a", "pcm_s16le", "-f", "wav"};
    if (ext == "caf")
        return {"-c:a", "pcm_s16le", "-f", "caf"};
    if (ext == "alac")
        return {"-c:a", "alac", "-f", "caf"};
    if (ext == "flac")
        return {"-c:a", "flac", "-f", "flac"};
    if (ext == "au" || ext == "snd")
        return {"-c:a", "pcm_s16be", "-f", "au"};
    return {};
}

bool makeAudio(const QString& path, double seconds, const QStringList& extraArguments) {
    QStringList args = {
        "-nostdin", "-v",
        "error",    "-y",
        "-f",       "lavfi",
        "-i",       QStringLiteral("sine=frequency=440:sample_rate=44100:duration=%1").arg(seconds)};
    args += {"-ac", "2"};
    args += codecFor(QFileInfo(path).suffix());
    args += extraArguments;
    args += path;
    return run(QStringLiteral("ffmpeg"), args).exitCode == 0 && QFileInfo(path).size() > 0;
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
