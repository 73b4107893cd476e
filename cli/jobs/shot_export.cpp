#include "jobs/shot_export.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "jobs/errors.h"
#include "jobs/input_files.h"
#include "jobs/sound.h"
#include "terminal/console.h"
#include "terminal/progress.h"

std::string usual_ending(bool makes_picture, const std::string& lens1) {
    if (makes_picture) {
        return "-360.jpg";
    }
    return extension_of(lens1) == ".mp4" ? "-360.mp4" : "-360.mov";
}

void check_size(Size size) {
    // As FFmpeg reckons for any picture, with some room around it.
    if ((size.width + 128LL) * (size.height + 128LL) >= INT_MAX / 8) {
        throw UsageError("--size: no picture of more than about 268 million pixels can be made, such as 23040x11520");
    }
    if (size.width != 2 * size.height) {
        console().tell("--size: a panorama is twice as wide as high; viewers will show this one distorted");
    }
}

void check_starts(const PairArguments& pair, const Description (&lenses)[2]) {
    for (int i = 0; i < 2; ++i) {
        if (lenses[i].has_length() && pair.start(i) >= lenses[i].duration) {
            throw CommandError(printable(pair.lens[i]) + ": lasts " + decimal_text(lenses[i].duration) +
                               " seconds, so nothing of it is left at the start asked for");
        }
    }
}

std::string check_sound(const ExportArguments& arguments, bool asked_for) {
    if (arguments.sound < 0 || has_sound(arguments.pair.lens[arguments.sound])) {
        return "";
    }
    const std::string silent = printable(arguments.pair.lens[arguments.sound]) + ": has no sound";
    const int other = 1 - arguments.sound;
    const std::string way_out = has_sound(arguments.pair.lens[other])
                                    ? "; --sound " + std::to_string(other + 1) + " takes that of the other lens"
                                    : "";
    if (asked_for) {
        throw CommandError(silent + (way_out.empty() ? "; --sound none leaves it out" : way_out));
    }
    return silent + way_out;
}

std::string uneven_lengths(const PairArguments& pair, const Description (&lenses)[2]) {
    if (!lenses[0].has_length() || !lenses[1].has_length()) {
        return "";
    }
    double left[2];
    for (int i = 0; i < 2; ++i) {
        left[i] = std::min(lenses[i].duration, pair.end(i).value_or(lenses[i].duration)) - pair.start(i);
    }
    if (std::abs(left[0] - left[1]) <= 1.5 * lenses[0].frame_seconds()) {
        return "";
    }
    return printable(pair.lens[0]) + " gives " + decimal_text(left[0]) + " seconds, " + printable(pair.lens[1]) + " " +
           decimal_text(left[1]) + ": the panorama ends with the shorter";
}

ExportJob complete_job(const ExportArguments& arguments, const Description (&lenses)[2]) {
    ExportJob job = job_of(arguments);
    if (!job.date) {
        job.date = lenses[0].datetime;
    }
    return job;
}

std::string apply_match(const Proposal& proposal, ExportJob* job) {
    if (!proposal.warning().empty()) {
        throw CommandError(printable(proposal.warning()) + "; --match cannot be used here");
    }
    proposal.apply(job);
    return proposal.options().empty() ? "The lenses meet already." : "Matched: " + proposal.options();
}
