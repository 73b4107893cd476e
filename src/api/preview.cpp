// One panorama in memory, as a JPEG or as its pixels.
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "api/shot.h"
#include "media/jpeg_encoder.h"
#include "media/rgb.h"

namespace {

constexpr ImageSize kUsualSize = {1024, 512};
constexpr int kUsualQuality = 85;

struct Free {
    void operator()(unsigned char* bytes) const { NQ360_free(bytes); }
};
using Bytes = std::unique_ptr<unsigned char, Free>;

struct Block {
    Bytes bytes;
    size_t size;
};

// As NQ360_free releases it.
Block copied(const void* bytes, size_t size) {
    Bytes copy(static_cast<unsigned char*>(std::malloc(size)));
    if (!copy) {
        throw std::bad_alloc();
    }
    std::memcpy(copy.get(), bytes, size);
    return {std::move(copy), size};
}

Block jpeg_of(const AVFrame* panorama, int quality) {
    const PacketPtr packet = encoded_jpeg(panorama, quality == 0 ? kUsualQuality : quality);
    return copied(packet->data, static_cast<size_t>(packet->size));
}

Block pixels_of(const AVFrame* panorama) {
    const cv::Mat pixels = rgb_of(panorama);
    return copied(pixels.data, pixels.total() * pixels.elemSize());
}

FramePtr panorama_of(NQ360_SHOT& shot, const NQ360_EXPORT_OPTIONS& options) {
    OutputOption option = look_of(options);
    if (options.width == 0 && options.height == 0) {
        option.output_size = kUsualSize;
    }
    option.filter = true;
    prepare_projection(options.band, shot.input1, shot.input2, &option);
    // What an export of movies makes is shown as one of limited range.
    return shot.frames.stitched(option, shot.is_picture() ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
}

// Hands out what `encoded` makes of the panorama; `name` is the argument's in the header.
int preview(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, const char* name, unsigned char** bytes,
            size_t* size, const std::function<Block(const AVFrame*)>& encoded) {
    if (bytes) {
        *bytes = nullptr;
    }
    if (size) {
        *size = 0;
    }
    std::unique_ptr<NQ360_SHOT> opened;
    const auto work = [&](NQ360_SHOT& used, const Client&, const char** reply) {
        if (!bytes || !size) {
            const std::string fault = std::string(bytes ? "size" : name) + ": must not be null";
            fail(used.paths(), "bad option", fault.c_str(), 30005, -1, reply);
            return NQ360_FAILED;
        }
        const FramePtr panorama = panorama_of(used, *options);
        Block block = encoded(panorama.get());
        *reply = make_json_shot(used, {panorama->width, panorama->height});
        *bytes = block.bytes.release();
        *size = block.size;
        return NQ360_FINISHED;
    };
    return shot_job(options, shot, &opened, std::ref(work));
}

}  // namespace

int NQ360_preview(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, unsigned char** jpeg, size_t* size) {
    return preview(options, shot, "jpeg", jpeg, size,
                   [&](const AVFrame* panorama) { return jpeg_of(panorama, options->quality); });
}

int NQ360_preview_rgb(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, unsigned char** rgb, size_t* size) {
    return preview(options, shot, "rgb", rgb, size, pixels_of);
}
