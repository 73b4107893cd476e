#include "site.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "answers.h"
#include "jobs/arguments.h"
#include "jobs/band.h"
#include "jobs/defaults.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/input_files.h"
#include "jobs/proposal.h"
#include "orders.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"

namespace {

constexpr std::chrono::milliseconds kListPatience(600);
constexpr int kLeastPreviewWidth = 4;
constexpr int kMostPreviewWidth = 4096;                      // what any graphics card takes
constexpr std::chrono::milliseconds kProgressPatience(250);  // how soon is noticed that all ends
constexpr int kQuietTurns = 40;                              // after so many a watcher is tried by a comment

// No script, style or picture but the page's own; pictures and sounds out of its memory, which the sphere needs.
const httplib::Headers kAlways = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self' blob: data:; "
     "media-src 'self' blob:; connect-src 'self' blob:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"}};

Settings settings_of(const httplib::Request& request) {
    return {request.params.begin(), request.params.end()};
}

Settings known_settings(const Json& body, const char* member, bool (*is_known)(const std::string& name)) {
    Settings settings = settings_in(body.value(member, Json::object()));
    for (const auto& [name, text] : settings) {
        if (!is_known(name)) {
            throw Refusal(400, printable(name) + ": there is no such setting");
        }
    }
    return settings;
}

Settings look_in(const Json& body) {
    return known_settings(body, "adjustments", is_look);
}

Settings choices_in(const Json& body) {
    return known_settings(body, "settings", is_choice);
}

const char* word_of(ShotKind kind) {
    static const char* const kWords[] = {"pair", "panorama", "lone", "other"};
    return kWords[static_cast<int>(kind)];
}

Json json_of(const Settings& settings) {
    Json json = Json::object();
    for (const auto& [name, text] : settings) {
        json[name] = text;
    }
    return json;
}

Json json_of(const ListedShot& shot) {
    const Description& found = shot.description;
    Json names = Json::array();
    for (const std::string& name : shot.names) {
        names.push_back(name);
    }
    return {{"id", shot.names[0]},
            {"kind", word_of(shot.kind)},
            {"files", names},
            {"type", found.is_picture ? "picture" : "movie"},
            {"width", found.width},
            {"height", found.height},
            {"seconds", found.has_length() ? Json(found.duration) : Json()},
            {"frames", found.is_picture ? Json() : Json(found.frames)},
            {"date", found.datetime},
            {"source", found.source},
            {"is360", found.is_360},
            {"damaged", shot.damaged},
            {"why", shot.why},
            {"version", std::to_string(shot.version)}};
}

}  // namespace

Site::Site(const SiteOptions& options)
    : options_(options),
      folders_(options.folder, options.made),
      catalog_(folders_, looks_),
      adjustments_(folders_.folder(), options.read_only),
      exports_([this](const std::string& message) { return without_folders(message); }) {
    svr_sock_ = 0;  // while it is none, the server writes no long answers
    set_default_headers(kAlways);
    set_mount_point("/", options.page);
    set_pre_routing_handler([this](const Request& request, Response& response) { return let_in(request, response); });
    // The parser refuses a range that makes no sense before anybody is asked who comes.
    set_error_handler(HandlerWithResponse([this](const Request& request, Response& response) {
        return response.status == 416 ? let_in(request, response) : HandlerResponse::Unhandled;
    }));
    set_post_routing_handler([](const Request&, Response& response) {
        if (!response.has_header("Cache-Control")) {
            response.set_header("Cache-Control", "no-store");
        }
    });
    set_exception_handler([this](const Request&, Response& response, const std::exception_ptr& thrown) {
        try {
            std::rethrow_exception(thrown);
        } catch (const Refusal& refusal) {
            send_refusal(refusal.status, refusal.what(), response);
        } catch (const std::invalid_argument& wrong) {
            send_refusal(400, wrong.what(), response);
        } catch (const CommandError& error) {
            send_refusal(422, without_folders(error.what()), response);
        } catch (const std::exception& error) {
            send_refusal(500, error.what(), response);
        }
    });
    add_routes();
}

void Site::add_routes() {
    add_route(&Server::Get, "/api/shots", &Site::send_shots);
    add_route(&Server::Get, "/api/thumbnail", &Site::send_thumbnail);
    add_route(&Server::Get, "/files/([^/]+)", &Site::send_file);
    add_route(&Server::Get, "/api/preview", &Site::send_preview);
    add_route(&Server::Get, "/api/space", &Site::send_space);
    add_route(&Server::Post, "/api/match", &Site::send_match);
    add_route(&Server::Put, "/api/adjustments", &Site::keep_adjustments);
    add_route(&Server::Get, "/api/exports", &Site::send_exports);
    add_route(&Server::Post, "/api/exports", &Site::add_export);
    add_route(&Server::Get, "/api/exports/([0-9]{1,15})", &Site::send_progress);
    add_route(&Server::Delete, "/api/exports/([0-9]{1,15})", &Site::cancel_export);
}

void Site::add_route(Server& (Server::*method)(const std::string&, Handler), const std::string& path,
                     void (Site::*route)(const Request&, Response&)) {
    (this->*method)(path,
                    [this, route](const Request& request, Response& response) { (this->*route)(request, response); });
}

void Site::open_door(int port) {
    door_ = std::make_unique<Door>(port);
}

void Site::answer(httplib::Stream& stream) {
    bool closed = false;
    process_request(stream, true, closed, [](Request& request) {
        request.ranges.clear();                    // applied where a file is sent, not to whatever is answered
        request.headers.erase("Accept-Encoding");  // packing the page takes seconds, and it does not travel
    });
}

void Site::close() {
    svr_sock_ = INVALID_SOCKET;
    catalog_.close();
    exports_.close();
}

httplib::Server::HandlerResponse Site::let_in(const Request& request, Response& response) const {
    switch (door_->ask(request)) {
        case Door::Answer::kKnown:
            return HandlerResponse::Unhandled;
        case Door::Answer::kWelcome:
            response.set_header("Set-Cookie", door_->cookie());
            response.set_redirect("/", 303);
            return HandlerResponse::Handled;
        default:
            response.status = 403;
            response.set_content("The address that nq360 has printed leads here, and no other.\n", "text/plain");
            return HandlerResponse::Handled;
    }
}

void Site::send_shots(const Request& request, Response& response) {
    const Listing listing = catalog_.list(kListPatience);
    Json shots = Json::array();
    for (const ListedShot& shot : listing.shots) {
        shots.push_back(json_of(shot));
        shots.back()["why"] = without_folders(shot.why);
        shots.back()["adjustments"] = json_of(adjustments_.load(shot.names[0]));
    }
    const Json answer = {{"folder", printable(folders_.folder())},
                         {"made", printable(folders_.made())},
                         {"readOnly", options_.read_only},
                         {"shots", shots},
                         {"strips", listing.strips},
                         {"pending", listing.pending},
                         {"error", listing.error}};
    const std::string text = json_line(answer);
    if (!is_known_version(request, std::to_string(std::hash<std::string>()(text)), response)) {
        response.set_content(text, "application/json");
    }
}

void Site::send_thumbnail(const Request& request, Response& response) {
    const std::string name = parameter(request, "file");
    const auto file = is_picture_or_movie(name) ? folders_.open(name) : std::nullopt;
    if (!file) {
        throw Refusal(404, "there is no such picture or movie");
    }
    if (is_known_version(request, std::to_string(file->state.time) + "-" + std::to_string(file->state.size),
                         response)) {
        return;
    }
    const Look look = catalog_.look_at(name, file->state);
    std::ifstream jpeg(look.thumbnail, std::ios::binary);
    if (look.thumbnail.empty() || !jpeg) {
        throw Refusal(404, "no thumbnail can be made");
    }
    response.set_content({std::istreambuf_iterator<char>(jpeg), {}}, "image/jpeg");
}

void Site::send_file(const Request& request, Response& response) {
    const std::string name = request.matches[1];
    const auto file = folders_.open(name);
    if (!file) {
        throw Refusal(404, "there is no such file");
    }
    const auto seat = sending_.take();
    if (!seat) {
        throw Refusal(503, "too many files are being sent already");
    }
    send_part(file->descriptor.get(), static_cast<size_t>(file->state.size), request.get_header_value("Range"),
              media_type(name), seat, response);
}

void Site::send_preview(const Request& request, Response& response) {
    ExportJob job;
    set_usual(&job.options);
    job.options.quality = 0;  // what is enough for one
    const Settings settings = settings_of(request);
    apply_look(settings, &job);
    apply_range(settings, &job);
    apply_band(settings, &job);
    if (const auto width = settings.find("width"); width != settings.end()) {
        const Size size = *parse_size(width->second + "x1");
        job.options.width = std::clamp(size.width / 2 * 2, kLeastPreviewWidth, kMostPreviewWidth);
        job.options.height = job.options.width / 2;
    }
    const ListedShot pair = pair_of(parameter(request, "shot"));
    const std::array<FileVersion, 2> lenses = lenses_of(pair, &job);
    response.set_content(previews_.make(job, lenses, pair.description.width), "image/jpeg");
}

void Site::send_space(const Request& request, Response& response) {
    Json space = {{"folder", printable(folders_.made())}, {"free", NQ360_freesize((folders_.made() + "/").c_str())}};
    if (request.has_param("shot")) {
        ExportJob job;
        const std::array<FileVersion, 2> lenses = lenses_of(pair_of(parameter(request, "shot")), &job);
        space["needed"] = static_cast<unsigned long long>(lenses[0].size + lenses[1].size) + kHeadroom;
    }
    send_json(space, response);
}

void Site::send_match(const Request& request, Response& response) {
    const Json body = body_of(request);
    ExportJob job;
    const Settings settings = look_in(body);
    apply_look(settings, &job);
    lenses_of(pair_of(text_of(body, "shot")), &job);
    const Outcome outcome = match_lenses(job, [](NQ360_STATE, const std::string&) { return interrupted(); });
    const Json reply = read_match(outcome.reply);
    if (outcome.state != NQ360_FINISHED) {
        throw CommandError(export_failure(reply, job));
    }
    const Proposal proposal(reply, job);
    proposal.apply(&job);
    send_json({{"adjustments", json_of(matched_look(settings, job))},
               {"options", proposal.options()},
               {"words", proposal.words()},
               {"warning", without_folders(printable(proposal.warning()))}},
              response);
}

void Site::keep_adjustments(const Request& request, Response& response) {
    const Json body = body_of(request);
    const ListedShot shot = pair_of(text_of(body, "shot"));
    const Settings settings = look_in(body);
    ExportJob job;
    apply_look(settings, &job);
    adjustments_.save(shot.names[0], settings);
    send_json({{"adjustments", json_of(settings)}}, response);
}

std::string Site::without_folders(std::string text) const {
    for (const std::string& start : {folders_.folder() + "/", folders_.made() + "/"}) {
        for (size_t at = text.find(start); at != std::string::npos; at = text.find(start, at)) {
            text.erase(at, start.size());
        }
    }
    return text;
}

void Site::apply_band(const Settings& settings, ExportJob* job) const {
    const auto name = settings.find("band");
    if (name == settings.end()) {
        return;
    }
    const auto file = folders_.open(name->second);
    if (!file) {
        throw Refusal(404, "band: there is no such picture");
    }
    check_band(file->state.path);
    job->band = file->state.path;
}

ListedShot Site::pair_of(const std::string& name) {
    auto found = catalog_.find(name);
    if (!found || found->kind != ShotKind::kPair) {
        throw Refusal(404, "there is no such pair");
    }
    return std::move(*found);
}

std::array<FileVersion, 2> Site::lenses_of(const ListedShot& pair, ExportJob* job) const {
    std::array<FileVersion, 2> states;
    for (int i = 0; i < 2; ++i) {
        const auto file = folders_.open(pair.names[i]);
        if (!file) {
            throw Refusal(404, printable(pair.names[i]) + ": is not there any more");
        }
        states[i] = file->state;
        job->lens[i] = file->state.path;
    }
    job->date = pair.description.datetime;
    return states;
}

void Site::send_exports(const Request& /*request*/, Response& response) {
    send_json({{"exports", exports_.list()}}, response);
}

void Site::add_export(const Request& request, Response& response) {
    if (options_.read_only) {
        throw Refusal(403, "nothing is exported: the folders are only read here");
    }
    const Json body = body_of(request);
    const std::lock_guard<std::mutex> lock(naming_);
    QueuedJob order = order_of(body);
    const std::string name = order.name;
    order.work_file = folders_.work_file(name);
    order.place = [this, file = order.work_file, name] { return place(file, name); };
    const auto number = exports_.add(std::move(order));
    if (!number) {
        throw Refusal(429, "too many exports wait already");
    }
    response.status = 201;
    response.set_header("Location", "/api/exports/" + std::to_string(*number));
    send_json({{"id", *number}, {"name", name}}, response);
}

QueuedJob Site::order_of(const Json& body) {
    if (text_of(body, "kind") == "sound") {
        const std::string name = text_of(body, "file");
        const auto file = is_picture_or_movie(name) ? folders_.open(name) : std::nullopt;
        if (!file) {
            throw Refusal(404, "there is no such movie");
        }
        const bool aac = body.value("aac", Json()) == Json(true);
        return order_sound(name, {file->state.path, output_for(name, aac ? ".m4a" : ".wav"), "", aac});
    }
    ExportJob job;
    set_usual(&job.options);
    const ListedShot shot = pair_of(text_of(body, "shot"));
    lenses_of(shot, &job);
    Settings settings = look_in(body);
    settings.merge(choices_in(body));
    apply_band(settings, &job);
    job.output = output_for(shot.names[0], ending_of_panorama(shot));
    return order_panorama(shot, std::move(job), settings);
}

std::string Site::output_for(const std::string& input, const std::string& ending) const {
    return folders_.made() + "/" + free_name(std::filesystem::path(input).stem().string() + ending);
}

std::string Site::free_name(const std::string& wanted) const {
    const size_t dot = wanted.rfind('.');
    std::string name = wanted;
    for (int number = 2; !folders_.is_free(name) || exports_.makes(name); ++number) {
        name = wanted.substr(0, dot) + "-" + std::to_string(number) + wanted.substr(dot);
    }
    return name;
}

// Another file may have come to stand there since the name was chosen.
std::string Site::place(const std::string& file, const std::string& wanted) {
    const std::lock_guard<std::mutex> lock(naming_);
    std::string name = wanted;
    while (!folders_.place(file, name)) {
        name = free_name(wanted);
    }
    return name;
}

void Site::send_progress(const Request& request, Response& response) {
    const int64_t number = std::stoll(request.matches[1]);
    if (!exports_.wait_for(number, 0, std::chrono::milliseconds(0))) {
        throw Refusal(404, "there is no such export");
    }
    const auto seat = watching_.take();
    if (!seat) {
        throw Refusal(429, "too many watch already");
    }
    const auto seen = std::make_shared<int64_t>(0);
    const auto quiet = std::make_shared<int>(0);
    response.set_chunked_content_provider(
        "text/event-stream", [this, seat, number, seen, quiet](size_t /*offset*/, httplib::DataSink& sink) {
            const auto state = exports_.wait_for(number, *seen, kProgressPatience);
            if (!state) {
                return false;
            }
            std::string text;
            if (state->version > *seen) {
                text = "data: " + json_line(state->event) + "\n";
            } else if (++*quiet % kQuietTurns == 0) {
                text = ":\n\n";  // fails when nobody listens any more
            }
            *seen = state->version;
            const bool written = text.empty() || sink.write(text.data(), text.size());
            if (state->ended) {
                sink.done();
            }
            return written;
        });
}

void Site::cancel_export(const Request& request, Response& response) {
    if (!exports_.cancel(std::stoll(request.matches[1]))) {
        throw Refusal(404, "there is no such export");
    }
    response.status = 204;
}
