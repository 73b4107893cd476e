#include "batch/cluster_plan.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "batch/journal.h"
#include "jobs/errors.h"
#include "jobs/whole_file.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kKinds[] = {"shot", "part", "join"};
constexpr int kMostParts = 100000;  // that the library takes

std::string plan_path(const std::string& to) {
    return (fs::path(to) / kNotesFolder / "cluster.json").string();
}

Json json_of(const ClusterTask& task) {
    return {{"kind", kKinds[task.kind]}, {"shot", task.shot}, {"part", task.part}, {"parts", task.parts}};
}

ClusterTask task_of(const Json& json) {
    const auto kind = std::find(std::begin(kKinds), std::end(kKinds), json.at("kind").get<std::string>());
    if (kind == std::end(kKinds)) {
        throw std::invalid_argument("no kind of task");
    }
    ClusterTask task;
    task.kind = static_cast<ClusterTask::Kind>(kind - std::begin(kKinds));
    task.shot = json.at("shot").get<size_t>();
    task.part = json.at("part").get<int>();
    task.parts = json.at("parts").get<int>();
    return task;
}

Json json_of(const ClusterPlan& plan) {
    Json json = {{"making", making_json(plan.making)}, {"force", plan.force}, {"submitted", plan.submitted}};
    for (const char* list : {"shots", "tasks", "jobs"}) {
        json[list] = Json::array();
    }
    for (const PlannedShot& shot : plan.shots) {
        json["shots"].push_back(shot_json(shot));
    }
    for (const ClusterTask& task : plan.tasks) {
        json["tasks"].push_back(json_of(task));
    }
    for (const ClusterJob& job : plan.jobs) {
        json["jobs"].push_back({{"id", job.id}, {"first", job.first}, {"count", job.count}});
    }
    return json;
}

ClusterPlan plan_of(const Json& json) {
    ClusterPlan plan;
    plan.making = making_of(json.at("making"));
    plan.force = json.at("force").get<bool>();
    plan.submitted = json.at("submitted").get<std::string>();
    for (const Json& shot : json.at("shots")) {
        plan.shots.push_back(shot_of(shot));
    }
    for (const Json& task : json.at("tasks")) {
        plan.tasks.push_back(task_of(task));
        if (plan.tasks.back().shot >= plan.shots.size()) {
            throw std::out_of_range("a task of no shot");
        }
    }
    for (const Json& job : json.at("jobs")) {
        plan.jobs.push_back(
            {job.at("id").get<std::string>(), job.at("first").get<size_t>(), job.at("count").get<size_t>()});
    }
    return plan;
}

}  // namespace

std::vector<ClusterTask> tasks_for(const std::vector<PlannedShot>& shots, double split) {
    const auto parts_of = [split](const PlannedShot& shot) {
        return split > 0 && !shot.is_picture
                   ? static_cast<int>(std::clamp(std::ceil(shot.seconds / split), 1.0, 1.0 * kMostParts))
                   : 1;
    };
    std::vector<ClusterTask> tasks;
    for (size_t shot = 0; shot < shots.size(); ++shot) {
        if (parts_of(shots[shot]) == 1) {
            tasks.push_back({ClusterTask::kShot, shot, 0, 0});
        }
    }
    for (size_t shot = 0; shot < shots.size(); ++shot) {
        const int parts = parts_of(shots[shot]);
        for (int part = 1; parts > 1 && part <= parts; ++part) {
            tasks.push_back({ClusterTask::kPart, shot, part, parts});
        }
        if (parts > 1) {
            tasks.push_back({ClusterTask::kJoin, shot, 0, parts});
        }
    }
    return tasks;
}

std::string output_of(const ClusterPlan& plan, const ClusterTask& task) {
    return task.kind == ClusterTask::kPart ? part_file(task.shot, task.part, task.parts) : plan.shots[task.shot].output;
}

std::string part_file(size_t shot, int part, int parts) {
    const std::string name = std::to_string(part) + "of" + std::to_string(parts) + ".part";
    return (fs::path(kNotesFolder) / ("parts-" + std::to_string(shot)) / name).string();
}

void write_cluster_plan(const std::string& to, const ClusterPlan& plan) {
    write_whole(plan_path(to), json_line(json_of(plan)));
}

std::optional<ClusterPlan> read_cluster_plan(const std::string& to) {
    const std::string path = plan_path(to);
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return {};
    }
    try {
        return plan_of(Json::parse(file));
    } catch (const std::exception&) {
        throw CommandError(printable(path) + ": is damaged; remove it and hand the batch to Slurm again");
    }
}
