#include "platform/linux/ffmpeg/MediaInput.h"

#include <cerrno>
#include <string>
#include <utility>

#include "platform/linux/ffmpeg/MediaError.h"

namespace tessivox::ffmpeg {
namespace {

constexpr const char* kCannotOpen =
    "This file could not be opened as sound; choose an m4a, mp3, wav, aiff or caf file that plays elsewhere";

struct Options {
    AVDictionary* values = nullptr;

    Options() {
        // A playlist that calls itself audio must not fetch what it names.
        av_dict_set(&values, "format_whitelist", "mov,mp3,wav,aiff,caf", 0);
        av_dict_set(&values, "protocol_whitelist", "file", 0);
    }
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&values); }
};

int askWhetherOver(void* isOver) { return (*static_cast<const std::function<bool()>*>(isOver))() ? 1 : 0; }

}  // namespace

MediaInput::MediaInput(const std::filesystem::path& path, std::function<bool()> isOver) : isOver_(std::move(isOver)) {
    redirectLog();
    // Opening a named pipe would wait for its other end.
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) check(error ? -error.value() : AVERROR(EINVAL), kCannotOpen);
    auto* context = made(avformat_alloc_context());
    context->interrupt_callback = {askWhetherOver, &isOver_};
    Options options;
    // With its protocol named, so that no part of a file name is taken for one. On failure it frees what it was given.
    check(avformat_open_input(&context, ("file:" + path.string()).c_str(), nullptr, &options.values), kCannotOpen);
    context_.reset(context);
}

AVStream* MediaInput::firstSound() const {
    for (unsigned index = 0; index < context_->nb_streams; ++index) {
        auto* stream = context_->streams[index];
        if (stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) return stream;
    }
    return nullptr;
}

}  // namespace tessivox::ffmpeg
