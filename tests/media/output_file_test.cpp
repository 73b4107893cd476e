#include "media/output_file.h"

#include <filesystem>
#include <string>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/limits.h"
#include "support/open_files.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

class OutputFileTest : public testing::Test {
  protected:
    void write(const std::string& text) {
        avio_write(file.io(), reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    }
    std::string content() const {
        const Bytes bytes = read_file(path);
        return std::string(bytes.begin(), bytes.end());
    }

    TempDir dir;
    const std::string path = dir.file("out");
    OutputFile file;
};

TEST_F(OutputFileTest, HoldsWhatWasWrittenOnceItIsClosed) {
    ASSERT_EQ(file.open(path.c_str()), 0);
    write("one two");
    avio_seek(file.io(), 4, SEEK_SET);
    write("TWO three");
    avio_flush(file.io());
    EXPECT_EQ(avio_size(file.io()), 13);
    EXPECT_EQ(file.close(), 0);
    EXPECT_EQ(file.io(), nullptr);
    EXPECT_EQ(content(), "one TWO three");
}

TEST_F(OutputFileTest, BeginsEmpty) {
    write_file(path, {'o', 'l', 'd'});
    ASSERT_EQ(file.open(path.c_str()), 0);
    write("x");
    EXPECT_EQ(file.close(), 0);
    EXPECT_EQ(content(), "x");
}

TEST_F(OutputFileTest, TellsWhyItCannotBeOpened) {
    EXPECT_EQ(file.open(dir.file("no/such/folder").c_str()), AVERROR(ENOENT));
    EXPECT_EQ(file.io(), nullptr);
    EXPECT_EQ(file.open(dir.path().c_str()), AVERROR(EISDIR));
}

// What is small stays in the buffer until the close, and fails there.
TEST_F(OutputFileTest, TellsAtTheCloseThatThereWasNoRoom) {
    ASSERT_EQ(file.open(path.c_str()), 0);
    const FileSizeLimit limit(4);
    write("five5");
    EXPECT_EQ(file.close(), AVERROR(EFBIG));
    EXPECT_EQ(file.close(), AVERROR(EFBIG)) << "told to whoever asks again";
}

TEST_F(OutputFileTest, TellsAtTheCloseThatASeekFailed) {
    ASSERT_EQ(file.open(path.c_str()), 0);
    write("x");
    // Far behind where FFmpeg would refuse by itself.
    EXPECT_LT(avio_seek(file.io(), INT64_MAX, SEEK_SET), 0);
    EXPECT_EQ(file.close(), AVERROR(EINVAL));
}

TEST_F(OutputFileTest, ForgetsAFailureWithTheNextFile) {
    ASSERT_LT(file.open(dir.path().c_str()), 0);
    ASSERT_EQ(file.open(path.c_str()), 0);
    EXPECT_EQ(file.close(), 0);
}

TEST_F(OutputFileTest, LeavesNothingOpen) {
    const auto before = open_files();
    {
        OutputFile forgotten;
        ASSERT_EQ(forgotten.open(path.c_str()), 0);
        ASSERT_EQ(forgotten.open(dir.file("other").c_str()), 0);
    }
    EXPECT_EQ(open_files(), before);
}

}  // namespace
