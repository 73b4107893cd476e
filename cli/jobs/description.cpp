#include "jobs/description.h"

#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/library.h"

namespace {

bool is_true(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_boolean() && found->get<bool>();
}

std::string source_of(const Json& reply) {
    std::string software = text_of(reply, "youtube360_maker");
    if (!software.empty()) {
        return software;
    }
    const std::string maker = text_of(reply, "maker");
    const std::string model = text_of(reply, "model");
    return maker + (maker.empty() || model.empty() ? "" : " ") + model;
}

}  // namespace

Description read_description(const Json& reply) {
    Description description;
    description.width = static_cast<int>(number_of(reply, "width", 0));
    description.height = static_cast<int>(number_of(reply, "height", 0));
    const auto duration = reply.find("duration");
    description.duration = duration != reply.end() && duration->is_number() ? duration->get<double>() : -1;
    description.frames = number_of(reply, "frame_count", 0);
    description.orientation = static_cast<int>(number_of(reply, "orientaion"));
    description.is_picture = text_of(reply, "type") == "JPEG";
    description.is_360 = is_true(reply, "isTarget");
    description.datetime = text_of(reply, "datetime");
    description.source = source_of(reply);
    for (const Json& word : reply.value("unread", Json::array())) {
        description.unread += (description.unread.empty() ? "" : ",") + word.get<std::string>();
    }
    return description;
}

Description describe(const std::string& path) {
    const Outcome outcome = analyze_file(path);
    const Json reply = read_reply(outcome.reply, Operation::kAnalysis);
    if (outcome.state != NQ360_FINISHED) {
        throw CommandError(analysis_failure(reply, path, ""));
    }
    Description found = read_description(reply);
    if (found.width <= 0 || found.height <= 0) {
        throw CommandError(no_picture(path));
    }
    return found;
}
