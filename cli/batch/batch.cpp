#include "batch/batch.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <filesystem>
#include <mutex>
#include <stdexcept>

#include <unistd.h>

#include "batch/assessment.h"
#include "batch/board.h"
#include "batch/folder_lock.h"
#include "batch/journal.h"
#include "batch/memory.h"
#include "batch/path_json.h"
#include "batch/placement.h"
#include "batch/shot_maker.h"
#include "batch/work_folder.h"
#include "jobs/errors.h"
#include "jobs/in_order.h"
#include "jobs/library.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace fs = std::filesystem;

namespace {

// Nothing more can be made.
struct BatchEnds : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Bytes that one takes while it is made: a multiple of the picture planes, as measured.
uint64_t memory_of(const PlannedShot& shot) {
    const double planes = 1.5 * (static_cast<double>(shot.width) * shot.height +
                                 2 * static_cast<double>(shot.lens_width) * shot.lens_width);
    return static_cast<uint64_t>((shot.is_picture ? 2.5 : 8) * planes) + (16U << 20);
}

// One per core, as far as memory goes, of which a fifth is left to others.
int usual_number(const std::vector<const PlannedShot*>& shots) {
    uint64_t most = 1;
    for (const PlannedShot* shot : shots) {
        most = std::max(most, memory_of(*shot));
    }
    const auto available = available_memory();
    const uint64_t fitting = available ? *available / 5 * 4 / most : UINT64_MAX;
    return static_cast<int>(std::clamp<uint64_t>(fitting, 1, static_cast<uint64_t>(core_count())));
}

class Batch {
  public:
    Batch(const Plan& plan, const Making& making, const BatchSettings& settings)
        : plan_(plan),
          making_(making),
          settings_(settings),
          making_json_(making_json(making)),
          lock_(settings.to),
          work_folder_(begun_work_folder()),
          journal_(settings.to),
          records_(read_journals(settings.to)),
          states_(assess(plan, making_json_, settings.to, records_)) {}

    int run() {
        const std::vector<const PlannedShot*> shots = shots_to_make(plan_, states_, settings_.force);
        if (const std::string lack = lack_of_space(shots, settings_.to); !lack.empty()) {
            throw CommandError(lack);
        }
        at_a_time_ = settings_.at_a_time.value_or(usual_number(shots));
        sort_out();
        make_all();
        tell_summary();
        if (thrown_) {
            std::rethrow_exception(thrown_);
        }
        const bool damaged = std::any_of(plan_.left_out.begin(), plan_.left_out.end(),
                                         [](const LeftOut& file) { return file.is_damaged; });
        return interrupted() ? kCancelled : failed_ > 0 || damaged ? kFailed : kDone;
    }

  private:
    // Those of runs that were killed are removed; no other run works here.
    WorkFolder begun_work_folder() const {
        constexpr const char* kBeginning = "work-";
        remove_work_folders(settings_.to, kBeginning);
        return WorkFolder(settings_.to, kBeginning + lock_.id());
    }

    std::string path_of_output(size_t shot) const {
        return (fs::path(settings_.to) / plan_.shots[shot].output).string();
    }

    // What is to be made, the longest first: the last ones to end, beside which cores may have nothing to do, are
    // short.
    void sort_out() {
        for (size_t i = 0; i < states_.size(); ++i) {
            if (is_to_be_made(states_[i], settings_.force)) {
                waiting_.push_back(i);
                work_left_ += plan_.shots[i].work();
            } else if (states_[i] == OutputState::kForeign) {
                in_the_way_.push_back(i);
            } else {
                if (states_[i] == OutputState::kPlaced) {
                    note_done(plan_.shots[i].output);
                }
                ++left_;
            }
        }
        std::stable_sort(waiting_.begin(), waiting_.end(), [this](size_t one, size_t other) {
            return plan_.shots[one].work() > plan_.shots[other].work();
        });
    }

    // The process ended between the file and this line.
    void note_done(const std::string& output) {
        const ShotRecord::Made& made = *records_.at(output).whole;
        journal_.append(done_event(output, made.key, made.file));
    }

    void make_all() {
        std::vector<double> work(plan_.shots.size());
        for (const size_t shot : waiting_) {
            work[shot] = plan_.shots[shot].work();
        }
        const Stoppable stoppable("the frames begun are made");
        board_.emplace(work, !settings_.as_lines && !console().quiet() && !(console().has_status_line() && isatty(1)));
        for (const size_t shot : in_the_way_) {
            fail(shot, in_the_way(path_of_output(shot)));
        }
        InOrder<void> all(waiting_.size(), at_a_time_, [this](size_t at) { make_unless_stopped(waiting_[at]); });
        for (size_t at = 0; at < waiting_.size(); ++at) {
            all.take(at);
        }
    }

    // What stops one from being made but is none of its own faults ends all.
    void make_unless_stopped(size_t shot) {
        if (stops()) {
            return;
        }
        try {
            make(shot);
        } catch (...) {
            end_all(std::current_exception());
        }
    }

    bool stops() const { return interrupted() || ends_; }

    void end_all(std::exception_ptr thrown) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!thrown_) {
            thrown_ = std::move(thrown);
        }
        ends_ = true;
    }

    void make(size_t shot) {
        const PlannedShot& planned = plan_.shots[shot];
        check_lock();
        log(begun_event(planned.output));
        board_->begin(shot, fs::path(planned.output).filename().string());
        std::string why;
        try {
            make_and_place(shot);
        } catch (const CommandError& error) {
            why = error.what();
        } catch (const std::bad_alloc&) {
            why = printable(planned.output) + ": not enough memory";
        }
        if (!why.empty()) {
            check_lock();
            log(failed_event(planned.output, why));
            fail(shot, why);
        }
        const std::lock_guard<std::mutex> lock(mutex_);
        work_left_ -= planned.work();
    }

    void make_and_place(size_t shot) {
        const PlannedShot& planned = plan_.shots[shot];
        const auto begun = std::chrono::steady_clock::now();
        const Json key = key_of(planned, making_json_);
        const std::string file = work_folder_.file(std::to_string(shot), planned.output);
        const MadeShot made =
            make_shot(making_, {planned, path_of_output(shot), file, workers_for(planned)}, [this, shot](double share) {
                board_->advance(shot, share);
                return stops();
            });
        if (made.cancelled) {
            board_->stop(shot);
            log(cancelled_event(planned.output));
            return;
        }
        if (key_of(planned, making_json_) != key) {
            throw CommandError(printable(planned.lens[0]) + ", " + printable(planned.lens[1]) +
                               ": changed while they were read");
        }
        for (const std::string& notice : made.notices) {
            board_->tell(notice);
        }
        place(shot, file, key);
        finish(shot, std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count());
    }

    // So that all cores have something to do until the end.
    int workers_for(const PlannedShot& shot) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const double share = shot.work() / std::max(work_left_, shot.work());
        return std::clamp(static_cast<int>(std::ceil(share * at_a_time_ - 0.1)), 1, at_a_time_);
    }

    void place(size_t shot, const std::string& file, const Json& key) {
        const std::string& output = plan_.shots[shot].output;
        const Placement placement = {file,           output, path_of_output(shot), key, record_of(records_, output),
                                     settings_.force};
        write_to_disk(placement);
        check_lock();
        put_in_place(placement, [this](const Json& event) { log(event); });
    }

    void check_lock() const {
        if (!lock_.holds()) {
            throw BatchEnds(printable(settings_.to) +
                            ": the folder is gone, or another run has taken it over; nothing more is written");
        }
    }

    void log(const Json& event) {
        const std::lock_guard<std::mutex> lock(mutex_);
        try {
            journal_.append(event);
        } catch (const CommandError& error) {
            throw BatchEnds(error.what());
        }
    }

    void finish(size_t index, double seconds) {
        const PlannedShot& shot = plan_.shots[index];
        const std::string frames = shot.is_picture ? "" : ", " + std::to_string(shot.frames) + " frames";
        board_->finish(index, printable(shot.output) + ": " + std::to_string(shot.width) + "x" +
                                  std::to_string(shot.height) + frames + ", in " + decimal_text(seconds) + " s");
        if (settings_.as_lines) {
            board_->print(json_line({{"state", "finished"}, {"output", path_json(shot.output)}, {"seconds", seconds}}));
        }
        ++made_;
    }

    void fail(size_t shot, const std::string& why) {
        ++failed_;
        board_->fail(shot, why);
        if (settings_.as_lines) {
            board_->print(
                json_line({{"state", "failed"}, {"output", path_json(plan_.shots[shot].output)}, {"why", why}}));
        }
    }

    void tell_summary() const {
        const size_t not_made = states_.size() - made_ - left_ - failed_;
        const std::string rest = not_made > 0 ? ", " + std::to_string(not_made) + " not made" : "";
        console().tell((interrupted() ? "cancelled; " : "") + std::to_string(made_) + " made, " +
                       std::to_string(left_) + " left as they were, " + std::to_string(failed_) + " failed" + rest);
        if (settings_.as_lines) {
            console().print(json_line(
                {{"made", made_.load()}, {"left", left_}, {"failed", failed_.load()}, {"not_made", not_made}}));
        }
    }

    const Plan& plan_;
    const Making& making_;
    const BatchSettings& settings_;
    const Json making_json_;
    const FolderLock lock_;
    const WorkFolder work_folder_;
    Journal journal_;
    const Records records_;
    const std::vector<OutputState> states_;
    int at_a_time_ = 1;
    std::vector<size_t> waiting_;
    std::vector<size_t> in_the_way_;
    std::optional<Board> board_;
    std::mutex mutex_;  // of what follows, and of the journal
    double work_left_ = 0;
    std::exception_ptr thrown_;
    std::atomic<bool> ends_ = false;
    std::atomic<size_t> made_ = 0;
    std::atomic<size_t> failed_ = 0;
    size_t left_ = 0;
};

}  // namespace

int run_batch(const Plan& plan, const Making& making, const BatchSettings& settings) {
    return Batch(plan, making, settings).run();
}
