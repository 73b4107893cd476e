#include "media/whole.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "projection/image_frame.h"

namespace {

ImageSize plane_size(const AVFrame* frame, int plane) {
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
    if (plane == 0 || !format) {
        return {frame->width, frame->height};
    }
    return {AV_CEIL_RSHIFT(frame->width, format->log2_chroma_w), AV_CEIL_RSHIFT(frame->height, format->log2_chroma_h)};
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

void blank_before_decoding(AVCodecContext* decoder) {
    decoder->get_buffer2 = blank_buffer;
}

int decoded_rows(const AVFrame* frame) {
    int rows = 0;
    for (int plane = 0; plane < 3 && frame->data[plane]; ++plane) {
        const ImageSize size = plane_size(frame, plane);
        int row = size.height;
        while (row > 0 &&
               is_blank(frame->data[plane] + static_cast<ptrdiff_t>(row - 1) * frame->linesize[plane], size.width)) {
            --row;
        }
        rows = std::max(rows, static_cast<int>(static_cast<int64_t>(row) * frame->height / size.height));
    }
    return rows;
}
