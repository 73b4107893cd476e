#include "batch/shot_maker.h"

#include <algorithm>

#include "batch/file_state.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/range.h"
#include "jobs/shot_export.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"

namespace {

constexpr double kShareOfMatch = 0.1;  // of the time that a shot takes

class ShotMaker {
  public:
    ShotMaker(const Making& making, const MakingOrder& order, const ShareHandler& handler)
        : making_(making), order_(order), handler_(handler), arguments_(making.arguments) {
        std::copy_n(order.shot.lens, 2, arguments_.pair.lens);
        arguments_.output = order.file;
    }

    MadeShot make() {
        check_lenses(arguments_.pair);
        for (int i = 0; i < 2; ++i) {
            lenses_[i] = describe(arguments_.pair.lens[i]);
        }
        check_starts(arguments_.pair, lenses_);
        if (!lenses_[0].is_picture) {
            note(check_sound(arguments_, making_.sound_asked_for));
            note(uneven_lengths(arguments_.pair, lenses_));
        }
        ExportJob job = complete_job(arguments_, lenses_);
        made_.cancelled = making_.match && !match(&job);
        if (!made_.cancelled) {
            export_it(&job);
        }
        return std::move(made_);
    }

  private:
    void note(const std::string& notice) {
        if (!notice.empty()) {
            made_.notices.push_back(notice);
        }
    }

    // Whether it was not stopped.
    bool match(ExportJob* job) {
        Json reply;
        const auto proposal = propose(*job, handler_between(0, kShareOfMatch), &reply);
        if (proposal) {
            apply_match(*proposal, job);
        }
        return proposal.has_value();
    }

    void export_it(ExportJob* job) {
        if (!arguments_.exact) {
            begin_with_the_frames_meant(lenses_, job);
        }
        job->options.workers = job->options.workers == 0 ? 0 : order_.workers;
        job->options.part = order_.part;
        job->options.parts = order_.parts;
        job->cancel_path = cancel_path();
        const Outcome outcome = export_panorama(*job, handler_between(making_.match ? kShareOfMatch : 0, 1));
        const Json reply = read_reply(outcome.reply, Operation::kExport);
        job->output = order_.output;
        made_.cancelled = outcome.state == NQ360_CANCELLED;
        if (outcome.state == NQ360_FAILED) {
            throw CommandError(export_failure(reply, *job));
        }
        if (outcome.state == NQ360_FINISHED) {
            note(missing_parts(reply, *job));
        }
    }

    ReplyHandler handler_between(double begin, double end) const {
        return [this, begin, end, total = int64_t{0}](NQ360_STATE state, const std::string& reply) mutable {
            const int64_t count = last_number(reply, "frame_count");
            total = state == NQ360_STARTED ? count : total;
            const bool is_known = state == NQ360_PROGRESS && total > 0;
            return handler_(is_known ? begin + (end - begin) * static_cast<double>(count) / static_cast<double>(total)
                                     : begin);
        };
    }

    const Making& making_;
    const MakingOrder& order_;
    const ShareHandler& handler_;
    ExportArguments arguments_;
    Description lenses_[2];
    MadeShot made_;
};

}  // namespace

MadeShot make_shot(const Making& making, const MakingOrder& order, const ShareHandler& handler) {
    return ShotMaker(making, order, handler).make();
}

Json key_of(const PlannedShot& shot, const Json& making) {
    Json inputs = Json::array();
    for (const std::string& lens : shot.lens) {
        const auto state = state_of_file(lens);
        if (!state) {
            throw CommandError(printable(lens) + ": there is no such file");
        }
        inputs.push_back(file_state_json(*state));
    }
    return {{"inputs", std::move(inputs)}, {"making", making}, {"version", NQ360_version()}};
}
