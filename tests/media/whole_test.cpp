// How much of a picture a decoder has left as it was.
#include "media/whole.h"

#include <cstring>

#include <gtest/gtest.h>

#include "media/ffmpeg_ptr.h"
#include "media/scaler.h"

namespace {

// Grey down to that row of Y, and as it was from there.
int rows_of(int width, int height, int rows) {
    const FramePtr frame = make_frame({width, height, AV_PIX_FMT_YUV420P}, AVCOL_RANGE_JPEG);
    for (int plane = 0; plane < 3; ++plane) {
        const int last = plane == 0 ? rows : (rows + 1) / 2;
        const int end = plane == 0 ? height : (height + 1) / 2;
        for (int row = 0; row < end; ++row) {
            std::memset(frame->data[plane] + row * frame->linesize[plane], row < last ? 128 : 0,
                        static_cast<size_t>(frame->linesize[plane]));
        }
    }
    return decoded_rows(frame.get());
}

}  // namespace

TEST(DecodedRows, AreThoseDownToTheLastOneThatWasWritten) {
    EXPECT_EQ(rows_of(64, 32, 20), 20);
    EXPECT_EQ(rows_of(64, 32, 32), 32);
    EXPECT_EQ(rows_of(64, 32, 0), 0);
}

TEST(DecodedRows, OfAPictureOneColumnWideAreCountedToo) {
    EXPECT_EQ(rows_of(1, 64, 20), 20);
    EXPECT_EQ(rows_of(3, 64, 64), 64);
}
