// Calls of eight threads at once: each reply and each file is what the same calls give alone.
#include <array>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "nq360.h"
#include "support/movie_export.h"
#include "support/plain_media.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

// What a round of calls gave, and all files in the folder, the inputs too.
struct Results {
    std::vector<Outcome> outcomes;
    std::map<std::string, Bytes> files;
};

// What one thread works on: a folder of its own with inputs, and calls that write into the folder "out" in it and
// all end alike.
class Desk {
  public:
    Desk(std::string name, NQ360_STATE end) : name_(std::move(name)), end_(end) {}
    virtual ~Desk() = default;
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    const std::string& name() const { return name_; }
    NQ360_STATE end() const { return end_; }

    Results work() {
        fs::remove_all(dir_.file("out"));
        fs::create_directory(dir_.file("out"));
        outcomes_.clear();
        calls();
        return {outcomes_, files()};
    }

  protected:
    virtual void calls() = 0;

    void done(Outcome outcome) { outcomes_.push_back(std::move(outcome)); }

    // Into a small picture or movie.
    void run_export(const Shot& shot, const std::string& output, ExportCall call = {},
                    std::function<void(const Reply&)> on_reply = nullptr) {
        call.movie1 = shot.one.c_str();
        call.movie2 = shot.two.c_str();
        call.output = output.c_str();
        call.height = call.width / 2;
        done(call.run(std::move(on_reply)));
    }

    std::string out(const std::string& name) const { return dir_.file("out/" + name); }
    const TempDir& dir() const { return dir_; }

  private:
    std::map<std::string, Bytes> files() const {
        std::map<std::string, Bytes> all;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(dir_.path())) {
            if (entry.is_regular_file()) {
                all[entry.path().string()] = read_file(entry.path().string());
            }
        }
        return all;
    }

    std::string name_;
    NQ360_STATE end_;
    TempDir dir_;
    std::vector<Outcome> outcomes_;
};

using Desks = std::vector<std::unique_ptr<Desk>>;

std::vector<Results> work_alone(const Desks& desks) {
    std::vector<Results> results;
    for (const auto& desk : desks) {
        SCOPED_TRACE(desk->name());
        results.push_back(desk->work());
        for (const Outcome& outcome : results.back().outcomes) {
            EXPECT_EQ(outcome.state(), desk->end()) << outcome.text();
        }
    }
    return results;
}

std::vector<Results> work_at_once(const Desks& desks) {
    std::vector<Results> results(desks.size());
    std::promise<void> gate;
    const std::shared_future<void> start = gate.get_future();
    std::vector<std::thread> threads;
    for (size_t i = 0; i < desks.size(); ++i) {
        threads.emplace_back([&, i] {
            start.wait();
            results[i] = desks[i]->work();
        });
    }
    gate.set_value();
    for (std::thread& thread : threads) {
        thread.join();
    }
    return results;
}

void expect_equal(const Results& actual, const Results& expected) {
    ASSERT_EQ(actual.outcomes.size(), expected.outcomes.size());
    for (size_t i = 0; i < expected.outcomes.size(); ++i) {
        EXPECT_EQ(actual.outcomes[i].result, expected.outcomes[i].result);
        EXPECT_EQ(actual.outcomes[i].replies, expected.outcomes[i].replies);
    }
    for (const auto& [path, bytes] : expected.files) {
        const auto found = actual.files.find(path);
        ASSERT_NE(found, actual.files.end()) << path << " is missing";
        EXPECT_TRUE(found->second == bytes) << path << " differs";
    }
    EXPECT_EQ(actual.files.size(), expected.files.size()) << "files that nobody asked for";
}

std::vector<std::string> lens_movie(const std::string& codec, const std::string& sound,
                                    const std::string& frames = "12") {
    return {"--size", "1440", "--key-frames", "4", "--frames", frames, "--codec", codec, "--sound", sound};
}

// ---- The desks ----

class Pictures : public Desk {
  public:
    Pictures() : Desk("pictures", NQ360_FINISHED) {}

  private:
    void calls() override {
        for (const int width : {0, 64, 101}) {
            done(analyze(shot_.one, out("one.jpg"), width));
            done(analyze(shot_.two, out("two" + std::to_string(width) + ".jpg"), width));
        }
    }
    Shot shot_ = stills_in(dir(), {"--size", "320", "--orientation", "6"});
};

class MovieFiles : public Desk {
  public:
    MovieFiles() : Desk("movie files", NQ360_FINISHED) {}

  private:
    void calls() override {
        for (const Shot& shot : {baseline_, pictures_}) {
            done(analyze(shot.one, out("one.jpg"), 64));
            done(analyze(shot.two));
            done(get_audio(shot.one.c_str(), out("sound.wav").c_str()));
        }
    }
    Shot baseline_ = movies_in(dir(), {"--size", "320", "--frames", "12", "--codec", "h264-main", "--sound", "1"});
    Shot pictures_ = movies_in(dir(), {"--size", "320", "--frames", "5", "--codec", "mjpeg", "--sound", "1"}, ".mp4");
};

// Each ends with an error, whose text is often composed on the way.
class BrokenFiles : public Desk {
  public:
    BrokenFiles() : Desk("broken files", NQ360_FAILED) {
        const Shot stills = stills_in(dir(), {"--size", "64"});
        const Shot movies = movies_in(dir(), {"--size", "320", "--frames", "2", "--sound", "1"});
        const Bytes picture = read_file(stills.one);
        const Bytes movie = read_file(movies.one);
        files_ = {dir().file("missing.jpg"),
                  dir().file("missing%s.mov"),
                  dir().file("text.jpg", text("no picture")),
                  dir().file("text.mov", text("no movie")),
                  dir().file("cut.jpg", slice(picture, 0, 300)),
                  dir().file("cut.mov", slice(movie, 0, movie.size() - 400)),
                  dir().file("short_atom.mov", atom("ftyp", text("qt  ")) + be32(4) + text("moov")),
                  dir().file("folder.mov")};
        fs::create_directory(files_.back());
    }

  private:
    void calls() override {
        for (const std::string& file : files_) {
            done(analyze(file, out("thumbnail.jpg"), 64));
            done(get_audio(file.c_str(), out("sound.wav").c_str()));
            run_export({file, files_[2]}, out("panorama.jpg"));
        }
    }
    std::vector<std::string> files_;
};

class StillExports : public Desk {
  public:
    StillExports() : Desk("exports of pictures", NQ360_FINISHED) {}

  private:
    void calls() override {
        ExportCall turned;
        turned.width = 512;
        turned.angle = 30;
        turned.angle1 = 1.5f;
        turned.correction1[0] = 10;
        turned.correction2[2] = -7;
        run_export(shot_, out("turned.jpg"), turned);
        ExportCall banded;
        banded.width = 300;
        banded.band = band_.c_str();
        run_export(shot_, out("banded.jpg"), banded);
    }
    Shot shot_ = stills_in(dir(), {"--size", "1440"});
    std::string band_ = make_plain_picture(dir().file("band.jpg"), "640x20");
};

class MovieExports : public Desk {
  public:
    explicit MovieExports(const std::string& codec)
        : Desk("exports of " + codec, NQ360_FINISHED), shot_(movies_in(dir(), lens_movie(codec, "both"))) {}

  private:
    void calls() override {
        ExportCall with_sound;
        with_sound.width = 512;
        with_sound.audio_source = 1;
        run_export(shot_, out("whole.mov"), with_sound);
        ExportCall range;
        range.width = 256;
        range.angle = 90;
        range.audio_source = 0;
        range.start1 = range.start2 = time_of(2);
        range.end1 = range.end2 = time_of(8);
        run_export(shot_, out("range.mp4"), range);
    }
    Shot shot_;
};

// Of pairs that break off, each for another reason and with what was written removed.
class FailingExports : public Desk {
  public:
    FailingExports() : Desk("failing exports", NQ360_FAILED) {
        const Bytes whole = read_file(shot_.one);
        cut_ = dir().file("cut.mov", slice(whole, 0, whole.size() * 3 / 4));
    }

  private:
    void calls() override {
        run_export({shot_.one, cut_}, out("cut.mov"));
        run_export(shot_, out("picture.jpg"));
        ExportCall odd;
        odd.width = 511;
        run_export(shot_, out("odd.mov"), odd);
        run_export(shot_, shot_.one);
        done(get_audio(shot_.one.c_str(), out("none.wav").c_str()));
    }
    std::vector<std::string> arguments_ = [] {
        std::vector<std::string> arguments = lens_movie("mjpeg", "none");
        arguments.emplace_back("--moov-first");
        return arguments;
    }();
    Shot shot_ = movies_in(dir(), arguments_);
    std::string cut_;
};

// An export that is cancelled when it is half done.
class CancelledExport : public Desk {
  public:
    CancelledExport() : Desk("a cancelled export", NQ360_CANCELLED) {}

  private:
    void calls() override {
        const std::string marker = dir().file("stop");
        fs::remove(marker);
        ExportCall call;
        call.width = 512;
        call.cancel = marker.c_str();
        run_export(shot_, out("cancelled.mov"), call, [&](const Reply& reply) {
            if (reply.state == NQ360_PROGRESS) {
                write_file(marker, {});
            }
        });
    }
    Shot shot_ = movies_in(dir(), lens_movie("h264-baseline", "none"));
};

// The same files for all, and outputs of its own.
class SharedInputs : public Desk {
  public:
    SharedInputs(const Shot& stills, const Shot& movies)
        : Desk("shared inputs", NQ360_FINISHED), stills_(stills), movies_(movies) {}

  private:
    void calls() override {
        done(analyze(stills_.one, out("still.jpg"), 64));
        done(analyze(movies_.two, out("movie.jpg"), 64));
        ExportCall call;
        call.width = 256;
        run_export(movies_, out("movie.mov"), call);
        run_export(stills_, out("panorama.jpg"), call);
    }
    Shot stills_;
    Shot movies_;
};

void expect_the_same_at_once(const Desks& desks, int rounds) {
    const Watchdog watchdog("work of several threads", 1200);
    const std::vector<Results> alone = work_alone(desks);
    for (int round = 0; round < rounds; ++round) {
        const std::vector<Results> at_once = work_at_once(desks);
        for (size_t i = 0; i < desks.size(); ++i) {
            SCOPED_TRACE(desks[i]->name());
            expect_equal(at_once[i], alone[i]);
        }
    }
}

}  // namespace

TEST(CallsOfEightThreads, GiveWhatEachGivesAlone) {
    Desks desks;
    desks.push_back(std::make_unique<Pictures>());
    desks.push_back(std::make_unique<MovieFiles>());
    desks.push_back(std::make_unique<BrokenFiles>());
    desks.push_back(std::make_unique<BrokenFiles>());
    desks.push_back(std::make_unique<StillExports>());
    desks.push_back(std::make_unique<MovieExports>("h264-main"));
    desks.push_back(std::make_unique<MovieExports>("mjpeg"));
    desks.push_back(std::make_unique<FailingExports>());
    expect_the_same_at_once(desks, 3);
}

TEST(CallsOfEightThreads, AreNotCancelledWithAnother) {
    Desks desks;
    desks.push_back(std::make_unique<CancelledExport>());
    desks.push_back(std::make_unique<CancelledExport>());
    for (const char* codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        desks.push_back(std::make_unique<MovieExports>(codec));
    }
    desks.push_back(std::make_unique<StillExports>());
    desks.push_back(std::make_unique<MovieFiles>());
    desks.push_back(std::make_unique<Pictures>());
    expect_the_same_at_once(desks, 1);
}

TEST(CallsOfEightThreads, ReadTheSameFiles) {
    const TempDir dir;
    const Shot stills = stills_in(dir, {"--size", "1440"});
    const Shot movies = movies_in(dir, lens_movie("h264-main", "none", "4"));
    Desks desks;
    for (int i = 0; i < 8; ++i) {
        desks.push_back(std::make_unique<SharedInputs>(stills, movies));
    }
    expect_the_same_at_once(desks, 1);
}
