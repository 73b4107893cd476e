// One panorama as a JPEG in memory.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "api/shot.h"
#include "media/jpeg_encoder.h"

namespace {

constexpr ImageSize kUsualSize = {1024, 512};
constexpr int kUsualQuality = 85;

struct Free {
    void operator()(unsigned char* bytes) const { NQ360_free(bytes); }
};
using Bytes = std::unique_ptr<unsigned char, Free>;

// As NQ360_free releases it.
Bytes copied(const AVPacket& packet) {
    const auto size = static_cast<size_t>(packet.size);
    Bytes bytes(static_cast<unsigned char*>(std::malloc(size)));
    if (!bytes) {
        throw std::bad_alloc();
    }
    std::memcpy(bytes.get(), packet.data, size);
    return bytes;
}

PacketPtr preview_of(NQ360_SHOT& shot, const NQ360_EXPORT_OPTIONS& options, ImageSize* size) {
    OutputOption option = look_of(options);
    if (options.width == 0 && options.height == 0) {
        option.output_size = kUsualSize;
    }
    option.filter = true;
    prepare_projection(options.band, shot.input1, shot.input2, &option);
    *size = option.output_size;
    // What an export of movies makes is shown as one of limited range.
    const FramePtr panorama = shot.frames.stitched(option, shot.is_picture() ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    return encoded_jpeg(panorama.get(), options.quality == 0 ? kUsualQuality : options.quality);
}

}  // namespace

int NQ360_preview(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, unsigned char** jpeg, size_t* size) {
    if (jpeg) {
        *jpeg = nullptr;
    }
    if (size) {
        *size = 0;
    }
    std::unique_ptr<NQ360_SHOT> opened;
    return shot_job(options, shot, &opened, [&](NQ360_SHOT& used, const Client&, const char** reply) {
        if (!jpeg || !size) {
            fail(used.paths(), "bad option", jpeg ? "size: must not be null" : "jpeg: must not be null", 30005, -1,
                 reply);
            return NQ360_FAILED;
        }
        ImageSize panorama{};
        const PacketPtr packet = preview_of(used, *options, &panorama);
        Bytes bytes = copied(*packet);
        *reply = make_json_shot(used, panorama);
        *jpeg = bytes.release();
        *size = static_cast<size_t>(packet->size);
        return NQ360_FINISHED;
    });
}
