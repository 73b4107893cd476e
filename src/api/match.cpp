// What makes the halves of a shot meet at the seam.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "api/reply.h"
#include "api/shot.h"
#include "projection/angles.h"
#include "projection/lens_circle.h"
#include "seam/doubts.h"
#include "seam/seam_match.h"

namespace {

// Of movies, so many places of the range are looked at, the start first.
constexpr int kPlaces = 5;

// A decimal with a point, whatever the caller's locale.
std::string number_text(double number) {
    char text[400];
    const auto end = std::to_chars(text, text + sizeof(text), number + 0.0, std::chars_format::fixed, 3).ptr;
    return std::string(text, end);
}
std::string number_text(int number) {
    return std::to_string(number);
}

template <typename Numbers>
std::string list_text(const Numbers& numbers) {
    std::string text;
    for (const auto number : numbers) {
        text += (text.empty() ? "" : ",") + number_text(number);
    }
    return "[" + text + "]";
}

// From malloc, as replies are.
char* json_of(const SeamMatch& match) {
    const std::pair<const char*, std::string> values[] = {{"correct1", list_text(match.corrections[0])},
                                                          {"correct2", list_text(match.corrections[1])},
                                                          {"gain1", list_text(match.gains[0])},
                                                          {"gain2", list_text(match.gains[1])},
                                                          {"turn", number_text(match.turn)},
                                                          {"step", list_text(match.step)},
                                                          {"step_turned", list_text(match.step_turned)},
                                                          {"step_corrected", list_text(match.step_corrected)},
                                                          {"step_gained", list_text(match.step_gained)},
                                                          {"compared", number_text(match.compared)},
                                                          {"confidence", number_text(match.confidence)},
                                                          {"warning", "\"" + match.warning + "\""}};
    std::string json;
    for (const auto& [key, value] : values) {
        json += std::string(json.empty() ? "" : ",") + "\"" + key + "\":" + value;
    }
    char* reply = strdup(("{" + json + "}").c_str());
    return reply ? reply : throw std::bad_alloc();
}

LensChanges changes_of(const NQ360_EXPORT_OPTIONS& options, const NQ360_SHOT& shot) {
    LensChanges changes;
    changes[0].turn = radians(options.turn1) - orientation_turn(shot.input1.orientation);
    changes[1].turn = radians(options.turn2) + orientation_turn(shot.input2.orientation);
    std::copy_n(options.gain1, 3, changes[0].gains.begin());
    std::copy_n(options.gain2, 3, changes[1].gains.begin());
    std::copy_n(options.correct1, 3, changes[0].corrections.begin());
    std::copy_n(options.correct2, 3, changes[1].corrections.begin());
    return changes;
}

bool is_movie(const AnalyzeResult& input) {
    return input.frame_count > 0;
}

// Seconds that the ranges of all movies have; 0 without any.
double common_length(const NQ360_SHOT& shot, const NQ360_EXPORT_OPTIONS& options) {
    double length = std::numeric_limits<double>::infinity();
    if (is_movie(shot.input1)) {
        length = std::min({length, options.end1 - options.start1, shot.input1.duration - options.start1});
    }
    if (is_movie(shot.input2)) {
        length = std::min({length, options.end2 - options.start2, shot.input2.duration - options.start2});
    }
    return std::isfinite(length) ? std::max(length, 0.0) : 0;
}

// Looks at the frames of the shot and, of movies, of more places. Whether the caller lets it finish.
bool look_at_places(const NQ360_SHOT& shot, const NQ360_EXPORT_OPTIONS& options, const Client& client,
                    SeamMatcher* matcher) {
    const double length = common_length(shot, options);
    const int places = length > 0 ? kPlaces : 1;
    const Paths paths = shot.paths();
    const auto tell = [&](NQ360_STATE state, int frames) {
        return client.send(state, make_json_result3(paths.movie1, paths.movie2, paths.output, state,
                                                    static_cast<unsigned long long>(frames)));
    };
    if (tell(NQ360_STARTED, places)) {
        return false;
    }
    matcher->look_at(shot.frames.frame(0), shot.frames.frame(1));
    OpenShot others(paths.movie1, paths.movie2);
    for (int place = 1; place < places; ++place) {
        if (tell(NQ360_PROGRESS, place)) {
            return false;
        }
        const double later = length * place / places;
        others.go_to(options.start1 + later, options.start2 + later);
        check_frames(shot, others);
        matcher->look_at(others.frame(0), others.frame(1));
    }
    return true;
}

// Both, where there are two.
std::string joined(const std::string& one, const std::string& other) {
    return one + (one.empty() || other.empty() ? "" : "; ") + other;
}

}  // namespace

int NQ360_match(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot) {
    std::unique_ptr<NQ360_SHOT> opened;
    const auto work = [&](NQ360_SHOT& used, const Client& client, const char** reply) {
        const Paths paths = used.paths();
        SeamMatcher matcher(changes_of(*options, used));
        if (!look_at_places(used, *options, client, &matcher)) {
            fail(paths, "Canceled", "", 39999, -1, reply);
            return NQ360_CANCELLED;
        }
        SeamMatch match = matcher.match();
        match.warning = joined(match.warning, doubts_about(paths.movie1, paths.movie2));
        *reply = json_of(match);
        return NQ360_FINISHED;
    };
    return shot_job(options, shot, &opened, std::ref(work));
}
