// One panorama in memory: it is what an export of its size shows.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/codes.h"
#include "support/media.h"
#include "support/movie_export.h"
#include "support/picture.h"
#include "support/plain_media.h"
#include "support/samples.h"
#include "support/shot_jobs.h"

using namespace test_support;
using testing::HasSubstr;
using testing::Pair;

namespace {

class Preview : public testing::Test {
  protected:
    void use_stills() {
        use(stills_in(dir, {"--size", "1440"}));
        options.width = 360;
        options.height = 180;
    }
    void use_movies() {
        use(movies_in(dir, {"--size", "1440", "--frames", "12"}));
        options.width = 720;
        options.height = 360;
    }
    void use(const Shot& files) {
        shot = files;
        options = shot_options(shot.one, shot.two);
    }

    Planes planes(const NQ360_EXPORT_OPTIONS& record, NQ360_SHOT* opened = nullptr) {
        const Previewed previewed = preview(record, opened);
        EXPECT_EQ(previewed.outcome.state(), NQ360_FINISHED) << previewed.outcome.text();
        return planes_of(dir.file("preview.jpg", previewed.jpeg));
    }

    // The same panorama as an export writes it.
    Planes exported(NQ360_EXPORT_OPTIONS record) {
        const std::string output = dir.file("exported.jpg");
        record.output = output.c_str();
        record.filter = 1;
        const Outcome outcome = export_with(record);
        EXPECT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
        return planes_of(output);
    }

    TempDir dir;
    Shot shot;
    NQ360_EXPORT_OPTIONS options = shot_options("", "");
};

double smallest_psnr(const Planes& a, const Planes& b) {
    return std::min({psnr(a[0], b[0]), psnr(a[1], b[1]), psnr(a[2], b[2])});
}

}  // namespace

TEST_F(Preview, IsOf1024By512AndQuality85) {
    use(stills_in(dir, {"--size", "1440"}));
    const Previewed previewed = preview(options);
    EXPECT_EQ(previewed.outcome.json().at("width"), 1024);
    EXPECT_EQ(previewed.outcome.json().at("height"), 512);
    EXPECT_EQ(previewed.outcome.json().at("movie_path1"), shot.one);
    EXPECT_EQ(size_of(dir.file("preview.jpg", previewed.jpeg)), cv::Size(1024, 512));
    options.quality = 85;
    EXPECT_EQ(preview(options).jpeg, previewed.jpeg);
    options.quality = 50;
    EXPECT_LT(preview(options).jpeg.size(), previewed.jpeg.size());
}

// Everything that tells how it looks does so as in an export.
TEST_F(Preview, IsWhatAnExportShows) {
    use_stills();
    options.quality = 85;
    const std::string band = make_plain_picture(dir.file("band.png"), "720x60");
    const std::vector<std::function<void(NQ360_EXPORT_OPTIONS*)>> looks = {
        [](auto*) {},
        [](auto* o) { o->angle = 90; },
        [](auto* o) { o->yaw = 40, o->pitch = -20, o->roll = 10; },
        [](auto* o) { o->turn1 = 30, o->turn2 = -50; },
        [](auto* o) { o->correct1[0] = 40, o->correct2[1] = -30; },
        [](auto* o) { o->gain1[0] = 0.5, o->gain2[2] = 2; },
        [](auto* o) { o->correct1[0] = 60, o->feather = 5; },
        [&](auto* o) { o->band = band.c_str(); }};
    const Planes plain = planes(options);
    const ShotGuard opened(options);
    for (size_t i = 0; i < looks.size(); ++i) {
        NQ360_EXPORT_OPTIONS record = options;
        looks[i](&record);
        const Planes shown = planes(record, opened.get());
        EXPECT_GT(smallest_psnr(shown, exported(record)), 60) << i;
        if (i > 0) {
            EXPECT_LT(smallest_psnr(shown, plain), 30) << i;
        }
    }
}

TEST_F(Preview, IsTheSameWithAndWithoutAnOpenShot) {
    use_stills();
    const ShotGuard opened(options);
    const std::vector<uint8_t> jpeg = preview(options).jpeg;
    EXPECT_EQ(preview(options, opened.get()).jpeg, jpeg);
    EXPECT_EQ(preview(options, opened.get()).jpeg, jpeg);
}

TEST_F(Preview, TakesTheShotsFilesAndNotTheRecords) {
    use_stills();
    const ShotGuard opened(options);
    const std::vector<uint8_t> jpeg = preview(options).jpeg;
    options.lens1 = options.lens2 = nullptr;
    const Previewed previewed = preview(options, opened.get());
    EXPECT_EQ(previewed.jpeg, jpeg);
    EXPECT_EQ(previewed.outcome.json().at("movie_path2"), shot.two);
}

// The frames are recorded 4:2:0, with both orientations that turn the lenses.
TEST_F(Preview, TurnsTheLensesAsTheirFilesLie) {
    use(stills_in(dir, {"--size", "1440", "--orientation", "6"}));
    options.width = 360;
    options.height = 180;
    options.quality = 85;
    EXPECT_GT(smallest_psnr(planes(options), exported(options)), 60);
}

TEST_F(Preview, ShowsTheFramesAtTheStarts) {
    use_movies();
    const ShotGuard opened(options);
    for (const auto& [first, second] : {std::pair{0, 0}, std::pair{5, 7}, std::pair{2, 7}, std::pair{0, 0}}) {
        options.start1 = first * kFrameSeconds;
        options.start2 = second * kFrameSeconds;
        EXPECT_THAT(codes_in(planes(options, opened.get())[0]), Pair(first, second));
        EXPECT_THAT(codes_in(planes(options)[0]), Pair(first, second));
    }
}

// A movie's black is 16, a JPEG's 0.
TEST_F(Preview, ShowsAMovieInTheRangeOfPictures) {
    use(movies_in(dir, {"--size", "1440", "--frames", "1", "--no-labels"}));
    options.width = 360;
    options.height = 180;
    const cv::Mat movie = planes(options)[0];
    use_stills();
    options.width = 360;
    options.height = 180;
    EXPECT_NEAR(mean_of(movie), mean_of(planes(options)[0]), 2);
}

TEST_F(Preview, MayBeOfOddSides) {
    use_stills();
    options.width = 301;
    options.height = 151;
    const Previewed previewed = preview(options);
    EXPECT_EQ(size_of(dir.file("odd.jpg", previewed.jpeg)), cv::Size(301, 151));
    EXPECT_EQ(previewed.outcome.json().at("height"), 151);
}

TEST_F(Preview, AFailureLeavesTheShotAsItWas) {
    use_movies();
    const ShotGuard opened(options);
    const std::vector<uint8_t> jpeg = preview(options, opened.get()).jpeg;
    NQ360_EXPORT_OPTIONS late = options;
    late.start1 = 100;
    const Previewed previewed = preview(late, opened.get());
    EXPECT_EQ(previewed.outcome.state(), NQ360_FAILED);
    EXPECT_EQ(previewed.outcome.json().at("api_errstr"), "input 1 has no picture at that time");
    EXPECT_EQ(preview(options, opened.get()).jpeg, jpeg);
}

TEST_F(Preview, AMovieThatHasGoneIsToldWhenItIsNeeded) {
    use_movies();
    const ShotGuard opened(options);
    std::filesystem::remove(shot.two);
    EXPECT_EQ(preview(options, opened.get()).outcome.state(), NQ360_FINISHED);
    options.start2 = 0.2;
    const Previewed previewed = preview(options, opened.get());
    EXPECT_EQ(previewed.outcome.json().at("errnum"), "30001");
    EXPECT_EQ(previewed.outcome.json().at("errstr"), "Could not open file");
    EXPECT_EQ(previewed.outcome.json().at("api_errstr"), "No such file or directory");
}

TEST_F(Preview, ABandThatCannotBeReadIsTold) {
    use_stills();
    const std::string band = dir.file("no band.png");
    options.band = band.c_str();
    EXPECT_THAT(preview(options).outcome.json().at("api_errstr").get<std::string>(),
                HasSubstr("the band picture cannot be read: " + band));
}

TEST_F(Preview, NowhereToPutItIsTold) {
    use_stills();
    Recorded recorded;
    options.reply = record_reply;
    options.log = record_line;
    options.user = &recorded;
    size_t size = 5;
    EXPECT_EQ(NQ360_preview(&options, nullptr, nullptr, &size), NQ360_FAILED);
    EXPECT_EQ(size, 0u);
    unsigned char* jpeg = nullptr;
    EXPECT_EQ(NQ360_preview(&options, nullptr, &jpeg, nullptr), NQ360_FAILED);
    ASSERT_EQ(recorded.replies.size(), 2u);
    EXPECT_EQ(recorded.replies[0].json().at("api_errstr"), "jpeg: must not be null");
    EXPECT_EQ(recorded.replies[1].json().at("api_errstr"), "size: must not be null");
}
