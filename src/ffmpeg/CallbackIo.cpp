#include "ffmpeg/CallbackIo.h"

#include "ffmpeg/Avformat.h"

extern "C" {
#include <libavformat/version.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>

namespace ko_player::ff_wrap {
namespace {

constexpr std::size_t kBufferBytes = 32 << 10;

#if LIBAVFORMAT_VERSION_MAJOR < 61
using Bytes = std::uint8_t*;
#else
using Bytes = const std::uint8_t*;
#endif

} // namespace

void CallbackIo::Free::operator()(AVIOContext* io) const noexcept {
    av_freep(&io->buffer);
    avformat().avio_context_free(&io);
}

CallbackIo::CallbackIo(Write write) : write_(std::move(write)) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    const auto pass = [](void* self, Bytes data, int size) {
        return static_cast<CallbackIo*>(self)->pass(data, size);
    };
    const auto go = [](void* self, std::int64_t offset, int whence) {
        return static_cast<CallbackIo*>(self)->go(offset, whence);
    };
    io_.reset(avformat().avio_alloc_context(buffer, kBufferBytes, 1, this, nullptr, pass, go));
    if (!io_) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    io_->direct = 1; // payload is passed on without another copy
}

int CallbackIo::pass(const std::uint8_t* data, int size) noexcept {
    try {
        const int result = write_(position_, data, static_cast<std::size_t>(std::max(size, 0)));
        position_ += size;
        return result < 0 ? result : size;
    } catch (const std::exception&) {
        return AVERROR(ENOMEM);
    }
}

std::int64_t CallbackIo::go(std::int64_t offset, int whence) noexcept {
    if (whence != SEEK_SET || offset < 0) {
        return AVERROR(ENOSYS); // above all: nobody knows a size
    }
    return position_ = offset;
}

std::int64_t CallbackIo::position() const {
    return avformat().avio_seek(io_.get(), 0, SEEK_CUR);
}

int CallbackIo::seek(std::int64_t position) {
    return static_cast<int>(std::min<std::int64_t>(avformat().avio_seek(io_.get(), position, SEEK_SET), 0));
}

int CallbackIo::flush() {
    avformat().avio_flush(io_.get());
    return std::min(io_->error, 0);
}

} // namespace ko_player::ff_wrap
