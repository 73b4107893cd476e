#include "media/whole.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace {

constexpr uint8_t kStartOfScan = 0xDA;
constexpr uint8_t kEndOfImage = 0xD9;

int plane_rows(const AVFrame* frame, int plane) {
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
    return plane == 0 || !format ? frame->height : AV_CEIL_RSHIFT(frame->height, format->log2_chroma_h);
}

int blank_buffer(AVCodecContext* decoder, AVFrame* frame, int flags) {
    const int result = avcodec_default_get_buffer2(decoder, frame, flags);
    for (int i = 0; result >= 0 && i < AV_NUM_DATA_POINTERS && frame->buf[i]; ++i) {
        std::memset(frame->buf[i]->data, 0, frame->buf[i]->size);
    }
    return result;
}

bool is_blank(const uint8_t* row, int width) {
    return row[0] == 0 && std::memcmp(row, row + 1, static_cast<size_t>(width) - 1) == 0;
}

}  // namespace

double share_there(const AVFormatContext* input, int stream_index) {
    if (stream_index < 0 || !input->pb) {
        return 1;
    }
    AVStream* stream = input->streams[stream_index];
    const int count = avformat_index_get_entries_count(stream);
    const int64_t size = avio_size(input->pb);
    if (count == 0 || size < 0) {
        return 1;
    }
    int there = 0;
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(stream, i);
        there += entry && entry->pos + entry->size <= size ? 1 : 0;
    }
    return static_cast<double>(there) / count;
}

bool is_jpeg_cut_off(const char* path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "rb"), std::fclose);
    uint8_t head[4] = {};
    if (!file || std::fread(head, 1, 2, file.get()) != 2 || head[0] != 0xFF || head[1] != 0xD8) {
        return false;  // no JPEG at all, which others tell
    }
    // Segment by segment to the scan. Before it there may be other pictures with end markers of their own.
    do {
        if (std::fread(head, 1, 4, file.get()) != 4 ||
            std::fseek(file.get(), (head[2] << 8 | head[3]) - 2, SEEK_CUR) != 0) {
            return true;
        }
    } while (head[1] != kStartOfScan);
    // Within the scan's data the marker cannot occur; behind it other programs may have appended theirs.
    uint8_t last = 0;
    std::vector<uint8_t> block(1 << 16);
    for (size_t count; (count = std::fread(block.data(), 1, block.size(), file.get())) > 0;) {
        for (size_t i = 0; i < count; ++i) {
            if (last == 0xFF && block[i] == kEndOfImage) {
                return false;
            }
            last = block[i];
        }
    }
    return true;
}

void blank_before_decoding(AVCodecContext* decoder) {
    decoder->get_buffer2 = blank_buffer;
}

int decoded_rows(const AVFrame* frame) {
    int rows = 0;
    for (int plane = 0; plane < 3 && frame->data[plane]; ++plane) {
        const int height = plane_rows(frame, plane);
        int row = height;
        while (row > 0 && is_blank(frame->data[plane] + static_cast<ptrdiff_t>(row - 1) * frame->linesize[plane],
                                   plane == 0 ? frame->width : frame->width / 2)) {
            --row;
        }
        rows = std::max(rows, static_cast<int>(static_cast<int64_t>(row) * frame->height / height));
    }
    return rows;
}
