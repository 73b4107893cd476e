#include "batch/journal.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "batch/path_json.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using test_support::TempDir;

class JournalTest : public testing::Test {
  protected:
    JournalTest() { fs::create_directory(dir_.file(kNotesFolder)); }

    std::string folder() const { return dir_.path(); }
    std::string file(const std::string& name = "journal.jsonl") const {
        return dir_.file(std::string(kNotesFolder) + "/" + name);
    }
    void write(const std::string& name, const std::string& text, std::ios::openmode mode = {}) const {
        std::ofstream(name, std::ios::binary | mode) << text;
    }
    std::string contents(const std::string& name) const {
        std::ifstream stream(name, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    static std::string done_line(const std::string& time, int key) {
        Json line = {{"time", time}};
        line.update(done_event("a", key, {1, 2, true}));
        return json_line(line);
    }
    int newest_key() const { return read_journals(folder()).at("a").done->key.get<int>(); }

    TempDir dir_;
};

TEST_F(JournalTest, TellsTheNewestEventOfEachOutput) {
    Journal journal(folder());
    journal.append(begun_event("a"));
    journal.append(begun_event("b\xFF"));
    journal.append(done_event("a", {{"k", 1}}, {7, 8, true}));
    journal.append(failed_event("b\xFF", "no room"));
    const Records records = read_journals(folder());
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records.at("a").event, "done");
    EXPECT_EQ(records.at("a").done->key, Json({{"k", 1}}));
    EXPECT_EQ(records.at("a").done->file.bytes, 7U);
    EXPECT_EQ(records.at("a").done->file.modified, 8);
    EXPECT_EQ(records.at("b\xFF").event, "failed");
    EXPECT_EQ(records.at("b\xFF").why, "no room");
    EXPECT_EQ(records.at("b\xFF").time.size(), std::string("2026-01-02T03:04:05.678Z").size());
}

TEST_F(JournalTest, KeepsWhatIsDoneWhenItIsTriedAgain) {
    Journal journal(folder());
    journal.append(done_event("a", 1, {7, 8, true}));
    journal.append(begun_event("a"));
    journal.append(cancelled_event("a"));
    const ShotRecord record = read_journals(folder()).at("a");
    EXPECT_EQ(record.event, "cancelled");
    EXPECT_TRUE(record.done.has_value());
}

TEST_F(JournalTest, PassesOverALineThatWasCutAndBeginsANewOne) {
    Journal(folder()).append(done_event("a", 1, {7, 8, true}));
    const std::string line = contents(file());
    for (size_t length = 1; length < line.size(); length += 7) {
        write(file(), line + line.substr(0, length));
        Journal(folder()).append(done_event("b", 2, {7, 8, true}));
        const Records records = read_journals(folder());
        ASSERT_EQ(records.size(), 2U) << length;
        EXPECT_EQ(records.at("b").done->key, Json(2));
    }
}

TEST_F(JournalTest, PassesOverLinesOfAnotherKind) {
    write(file(), "\n[]\n{}\n{\"output\":3,\"event\":\"done\"}\n{\"event\":\"done\",\"output\":\"x\"}\n" +
                      std::string("\x00\xFF\n", 3) + done_line("2026", 5));
    EXPECT_EQ(newest_key(), 5);
    EXPECT_EQ(read_journals(folder()).size(), 1U);
}

TEST_F(JournalTest, TakesTheNewestOfSeveralJournals) {
    write(file("journal.one.jsonl"), done_line("2026-01-02", 1) + done_line("2026-01-04", 2));
    write(file("journal.two.jsonl"), done_line("2026-01-03", 3));
    write(file("notes.jsonl"), done_line("2026-01-05", 4));
    EXPECT_EQ(newest_key(), 2);
    Journal(folder(), "three").append(done_event("a", 5, {1, 2, true}));
    EXPECT_TRUE(fs::exists(file("journal.three.jsonl")));
    EXPECT_EQ(newest_key(), 5);
}

TEST_F(JournalTest, IsReadInOrderAlsoWhereTheClockWasSetBack) {
    write(file(), done_line("2026-01-04", 1) + done_line("2026-01-02", 2));
    EXPECT_EQ(newest_key(), 2);
}

TEST_F(JournalTest, IsEmptyWhereThereIsNone) {
    EXPECT_TRUE(read_journals(dir_.file("nowhere")).empty());
    EXPECT_THROW(Journal(dir_.file("nowhere")), std::runtime_error);
}

TEST_F(JournalTest, TellsWhenItCannotBeWritten) {
    fs::create_symlink("/dev/full", file());
    Journal journal(folder());
    EXPECT_THROW(journal.append(begun_event("a")), std::runtime_error);
}

class OutputStateTest : public JournalTest {
  protected:
    OutputStateTest() {
        write(output_, "panorama");
        there_ = *state_of_file(output_);
    }

    OutputState state(const ShotRecord& record) const { return output_state(&record, 1, output_); }

    const std::string output_ = dir_.file("a.jpg");
    FileState there_;
    ShotRecord record_;
};

TEST_F(OutputStateTest, WithoutARecordIsSomebodyElses) {
    EXPECT_EQ(output_state(nullptr, 1, output_), OutputState::kForeign);
    EXPECT_EQ(output_state(nullptr, 1, dir_.file("none")), OutputState::kMissing);
    EXPECT_EQ(state(record_), OutputState::kForeign);
}

TEST_F(OutputStateTest, IsDoneByKeyAndSize) {
    record_.done = {1, {there_.bytes, 0, true}};
    EXPECT_EQ(state(record_), OutputState::kDone);
    record_.done->key = 2;
    EXPECT_EQ(state(record_), OutputState::kOutdated);
    record_.done = {1, {there_.bytes + 1, there_.modified, true}};
    EXPECT_EQ(state(record_), OutputState::kForeign);
}

TEST_F(OutputStateTest, OfAWholeFileIsKnownBySizeAndTime) {
    record_.done = {2, {there_.bytes, 0, true}};
    record_.whole = {1, there_};
    EXPECT_EQ(state(record_), OutputState::kPlaced);
    record_.whole->key = 3;
    EXPECT_EQ(state(record_), OutputState::kOutdated);
    record_.whole->file.modified += 1;  // the file of before stands there still
    EXPECT_EQ(state(record_), OutputState::kOutdated);
    record_.done.reset();
    EXPECT_EQ(state(record_), OutputState::kForeign);
}

TEST_F(OutputStateTest, OfAFolderIsSomebodyElses) {
    record_.done = {1, {fs::file_size(output_), 0, true}};
    fs::remove(output_);
    fs::create_directory(output_);
    record_.done->file.bytes = state_of_file(output_)->bytes;
    EXPECT_EQ(state(record_), OutputState::kForeign);
}

}  // namespace
