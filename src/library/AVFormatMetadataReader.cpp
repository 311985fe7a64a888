#include "library/AVFormatMetadataReader.h"

#include "library/TagItems.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

#include <chrono>
#include <memory>
#include <mutex>

namespace AVFormatMetadataReader {

namespace {

using Clock = std::chrono::steady_clock;

// How long one file may keep the demuxer busy before it is treated as unreadable.
constexpr std::chrono::seconds readLimit{3};

int interruptAfterDeadline(void* deadline) {
    return Clock::now() > *static_cast<const Clock::time_point*>(deadline) ? 1 : 0;
}

void addFields(const AVDictionary* fields, TagItems& into) {
    const AVDictionaryEntry* field = nullptr;
    while ((field = av_dict_get(fields, "", field, AV_DICT_IGNORE_SUFFIX)))
        into.addNamedField(QString::fromUtf8(field->key).toUpper(),
                           QString::fromUtf8(field->value).trimmed());
}

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

} // namespace

AssetMetadata read(const QByteArray& localPath) {
    static std::once_flag quiet;
    // Damaged files make demuxers talkative; stay quiet unless someone chose a log level already.
    std::call_once(quiet, [] {
        if (av_log_get_level() == AV_LOG_INFO)
            av_log_set_level(AV_LOG_QUIET);
    });

    AVFormatContext* context = avformat_alloc_context();
    if (!context)
        return {};
    const Clock::time_point deadline = Clock::now() + readLimit;
    context->interrupt_callback.callback = interruptAfterDeadline;
    context->interrupt_callback.opaque = const_cast<Clock::time_point*>(&deadline);
    if (avformat_open_input(&context, localPath.constData(), nullptr, nullptr) < 0)
        return {}; // the context is freed on failure
    const std::unique_ptr<AVFormatContext, InputCloser> input(context);
    if (avformat_find_stream_info(context, nullptr) < 0)
        return {};
    const int audio = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (audio < 0)
        return {};

    AssetMetadata metadata;
    metadata.readable = true;
    TagItems tag;
    addFields(context->metadata, tag);
    addFields(context->streams[audio]->metadata, tag);
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream* stream = context->streams[i];
        if (stream->disposition & AV_DISPOSITION_ATTACHED_PIC && stream->attached_pic.size > 0)
            tag.addPicture(QByteArray(reinterpret_cast<const char*>(stream->attached_pic.data),
                                      stream->attached_pic.size));
    }
    mergeTags({tag}, metadata);

    const AVStream* stream = context->streams[audio];
    if (context->duration != AV_NOPTS_VALUE)
        metadata.duration = double(context->duration) / AV_TIME_BASE;
    else if (stream->duration != AV_NOPTS_VALUE)
        metadata.duration = double(stream->duration) * av_q2d(stream->time_base);
    return metadata;
}

} // namespace AVFormatMetadataReader
