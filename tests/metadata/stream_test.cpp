#include "metadata/stream.h"

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <type_traits>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "metadata/jpeg.h"
#include "metadata/mov.h"
#include "support/bytes.h"
#include "support/command.h"
#include "support/limits.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

using namespace test_support;

namespace {

// What both readers do alike.
template <typename Reader>
class MetadataStreamTest : public testing::Test {
  protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override { testing::internal::GetCapturedStderr(); }

    TempDir dir;
};

struct ReaderNames {
    template <typename Reader>
    static std::string GetName(int) {
        return std::is_same_v<Reader, _jpeg> ? "Jpeg" : "Mov";
    }
};

using Readers = testing::Types<_jpeg, _mov>;
TYPED_TEST_SUITE(MetadataStreamTest, Readers, ReaderNames);

}  // namespace

TEST(MetadataStream, ThrownTextOutlivesItsSource) {
    const char* caught = nullptr;
    try {
        std::string gone = "a text of its own";
        throw_text("%s, %d", gone.c_str(), 7);
    } catch (const char* text) {
        caught = text;
    }
    EXPECT_STREQ(caught, "a text of its own, 7");
}

TEST(MetadataStream, LongTextIsCut) {
    const std::string longest(2000, 'x');
    EXPECT_EQ(thrown([&] { throw_text("%s", longest.c_str()); }), longest.substr(0, 511));
}

TEST(MetadataStream, SystemTexts) {
    EXPECT_EQ(system_text(ENOSPC), "No space left on device");
    EXPECT_EQ(system_text(-1), "Unknown error -1");
}

TEST(MetadataStream, LogsWhoseFileCannotBeOpened) {
    EXPECT_EQ(logged([] { thrown([] { _jpeg("/nowhere", false); }); }),
              "[.jpeg analyze] open stream\n[.jpeg analyze] file open error\n");
    EXPECT_EQ(logged([] { thrown([] { _mov("/nowhere", false); }); }), "[.mov .mp4 analyze] file open error\n");
}

TYPED_TEST(MetadataStreamTest, OpensForReadingAndWriting) {
    const std::string path = this->dir.file("file", text("content"));
    for (const bool writable : {false, true}) {
        TypeParam reader(path.c_str(), writable);
        EXPECT_NE(reader.stream, nullptr);
        EXPECT_EQ(reader.error_code, 0);
        EXPECT_STREQ(reader.error_text, "");
        EXPECT_EQ(fcntl(fileno(reader.stream), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(fcntl(fileno(reader.stream), F_GETFL) & O_ACCMODE, writable ? O_RDWR : O_RDONLY);
        reader.close_stream();
        EXPECT_EQ(reader.stream, nullptr);
        reader.close_stream();
    }
    EXPECT_EQ(read_file(path), text("content"));
}

TYPED_TEST(MetadataStreamTest, RefusesAFileThatIsNotThere) {
    const std::string path = this->dir.file("missing");
    EXPECT_EQ(thrown([&] { TypeParam(path.c_str(), false); }), "Can't open file " + path);
    EXPECT_EQ(thrown([&] { TypeParam(path.c_str(), true); }), "Can't open file " + path);
    EXPECT_EQ(thrown([&] { TypeParam(nullptr, false); }), "Can't open file ");
}

TYPED_TEST(MetadataStreamTest, RefusesWhatIsNoRegularFile) {
    const std::string pipe = this->dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, this->dir.path(), std::string("/dev/zero"), std::string("/dev/tty")}) {
        for (const bool writable : {false, true}) {
            EXPECT_EQ(thrown([&] { TypeParam(path.c_str(), writable); }), "Can't open file " + path);
        }
    }
}

TYPED_TEST(MetadataStreamTest, RefusesARegularFileThatCannotBeOpened) {
    // A program that runs cannot be written, by the superuser either.
    EXPECT_EQ(thrown([&] { TypeParam("/proc/self/exe", true); }), "Can't open file /proc/self/exe");
}

TYPED_TEST(MetadataStreamTest, LinkToARegularFileIsFollowed) {
    const std::string path = this->dir.file("file", text("content"));
    const std::string link = this->dir.file("link");
    std::filesystem::create_symlink(path, link);
    EXPECT_EQ(thrown([&] { TypeParam(link.c_str(), false); }), "");
}

TYPED_TEST(MetadataStreamTest, LongPathIsCutInTheText) {
    const std::string path = this->dir.path() + "/" + std::string(5000, 'x');
    const std::string text = thrown([&] { TypeParam(path.c_str(), false); });
    EXPECT_EQ(text.size(), 254u);
    EXPECT_EQ(text, ("Can't open file " + path).substr(0, 254));
}

TYPED_TEST(MetadataStreamTest, PercentSignsInAPathAreCharacters) {
    const std::string path = this->dir.file("%s%n%d 100%");
    EXPECT_EQ(thrown([&] { TypeParam(path.c_str(), false); }), "Can't open file " + path);
}

TYPED_TEST(MetadataStreamTest, ClosingTellsThatWritingFailed) {
    const std::string path = this->dir.file("file", text("content"));
    TypeParam reader(path.c_str(), true);
    FileSizeLimit limit(100);
    ASSERT_EQ(fseeko(reader.stream, 100, SEEK_SET), 0);
    ASSERT_EQ(fputc('x', reader.stream), 'x');
    EXPECT_EQ(thrown([&] { reader.close_stream(); }), "Can't write metadata: File too large");
    EXPECT_STREQ(reader.error_text, "Can't write metadata: File too large");
    EXPECT_EQ(reader.error_code, -1);
    EXPECT_EQ(reader.stream, nullptr);
    EXPECT_EQ(thrown([&] { reader.close_stream(); }), "");
}

TYPED_TEST(MetadataStreamTest, DestructorKeepsSilentAboutWritingThatFailed) {
    const std::string path = this->dir.file("file", text("content"));
    FileSizeLimit limit(100);
    auto reader = std::make_unique<TypeParam>(path.c_str(), true);
    ASSERT_EQ(fseeko(reader->stream, 100, SEEK_SET), 0);
    ASSERT_EQ(fputc('x', reader->stream), 'x');
    reader.reset();
    EXPECT_EQ(read_file(path), text("content"));
}

TYPED_TEST(MetadataStreamTest, ReadersAreNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<TypeParam>);
    EXPECT_FALSE(std::is_copy_assignable_v<TypeParam>);
}
