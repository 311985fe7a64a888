#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

// Helpers shared by the test programs. Paths are plain local paths.
namespace fixtures {

struct ToolResult {
    int exitCode = -1; // -1 when the program could not be started or timed out
    QByteArray out;
    QByteArray err;
};

// Runs an external program (ffmpeg, mid3v2, playerctl …) to completion, at most `timeoutMs`.
ToolResult run(const QString& program, const QStringList& arguments, int timeoutMs = 60000);

// True when `program` is on PATH.
bool haveTool(const QString& program);

// Debian's Python, which has mutagen even where another python3 comes first on PATH.
QString systemPython();

// Writes `seconds` of a 440 Hz tone to `path` with ffmpeg, choosing the codec from the extension
// (mp3, m4a, m4b, mp4, aac, adts, aif, aiff, aifc, wav, caf, flac, alac, au, snd).
// `extraArguments` go before the output path (for example metadata options). Returns false on failure.
bool makeAudio(const QString& path, double seconds = 1.0, const QStringList& extraArguments = {});

// A file of ../shared/corpus, or an empty string when that folder is not beside the checkout
// (tests then QSKIP the cases that need it).
QString corpusFile(const QString& relativePath);

// This process's resident memory, from /proc (benchmarks report it); 0 when it cannot be read.
qint64 residentKiB();

} // namespace fixtures
