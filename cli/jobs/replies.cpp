#include "jobs/replies.h"

#include <charconv>
#include <vector>

namespace {

enum class Kind {
    kNumber,
    kWord,     // true or false
    kEscaped,  // a text whose quotes and backslashes were escaped
    kRaw,      // a text as it is: its end is told by the key that follows
    kWords,    // a list of plain words
};

struct Key {
    const char* name;
    Kind kind;
};

using Format = std::vector<Key>;

const Format kDescription = {
    {"width", Kind::kNumber},
    {"height", Kind::kNumber},
    {"duration", Kind::kNumber},
    {"frame_count", Kind::kNumber},
    {"maker", Kind::kRaw},
    {"model", Kind::kRaw},
    {"orientaion", Kind::kNumber},
    {"capture_mode", Kind::kNumber},
    {"multi_capture", Kind::kNumber},
    {"camera_orientation", Kind::kNumber},
    {"youtube360_maker", Kind::kEscaped},
    {"isTarget", Kind::kWord},
    {"createdThumbnail", Kind::kWord},
    {"movie_path", Kind::kEscaped},
    {"thumbnail_path", Kind::kEscaped},
    {"datetime", Kind::kEscaped},
    {"type", Kind::kEscaped},
    {"unread", Kind::kWords},
};

Format paths_format(Operation operation) {
    switch (operation) {
        case Operation::kAnalysis:
            return {{"movie_path", Kind::kEscaped}};
        case Operation::kSound:
            return {{"movie_path", Kind::kEscaped}, {"audio_path", Kind::kEscaped}};
        default:
            return {{"movie_path1", Kind::kEscaped}, {"movie_path2", Kind::kEscaped}, {"export_path", Kind::kEscaped}};
    }
}

Format error_format(Operation operation) {
    Format format = {{"errnum", Kind::kEscaped},
                     {"errstr", Kind::kEscaped},
                     {"api_errnum", Kind::kNumber},
                     {"api_errstr", Kind::kRaw}};
    const Format paths = paths_format(operation);
    format.insert(format.end(), paths.begin(), paths.end());
    return format;
}

Format progress_format(Operation operation) {
    Format format = paths_format(operation);
    format.push_back({"frame_count", Kind::kNumber});
    return format;
}

Format result_format(Operation operation) {
    return operation == Operation::kAnalysis ? kDescription : paths_format(operation);
}

// At the end of an export's result where something could not be read.
constexpr Key kMissing = {"missing", Kind::kEscaped};

std::string quoted_key(const Key& key) {
    return std::string("\"") + key.name + "\":";
}

// Takes values off the front of a reply.
class Reader {
  public:
    explicit Reader(std::string_view rest) : rest_(rest) {}

    // Whether the key comes next; skips what stands before its value.
    bool skip_to(const Key& key) {
        const std::string name = quoted_key(key);
        const size_t at = rest_.find(name);
        if (at > 1) {  // a brace or a comma
            return false;
        }
        rest_.remove_prefix(at + name.size());
        const bool is_text = key.kind == Kind::kEscaped || key.kind == Kind::kRaw;
        if (is_text && !take("\"")) {
            return false;
        }
        return true;
    }

    Json number() {
        const std::string_view text = until(rest_.find_first_of(",}"));
        int64_t whole = 0;
        if (const auto end = std::from_chars(text.begin(), text.end(), whole); end.ptr == text.end() && !text.empty()) {
            return whole;
        }
        double decimal = 0;
        const auto end = std::from_chars(text.begin(), text.end(), decimal);
        return end.ptr == text.end() && !text.empty() ? Json(decimal) : Json();
    }

    Json words() {
        Json list = Json::array();
        std::string_view rest = until(rest_.find(']'));
        for (size_t begin = rest.find('"'); begin != std::string_view::npos; begin = rest.find('"')) {
            rest.remove_prefix(begin + 1);
            list.push_back(std::string(rest.substr(0, rest.find('"'))));
            rest.remove_prefix(std::min(rest.find('"'), rest.size() - 1) + 1);
        }
        return list;
    }

    Json word() {
        const std::string_view text = until(rest_.find_first_of(",}"));
        return text == "true" ? Json(true) : text == "false" ? Json(false) : Json();
    }

    std::string escaped() {
        std::string text;
        while (!rest_.empty() && !take("\"")) {
            take("\\");
            text += rest_.substr(0, 1);
            rest_.remove_prefix(std::min<size_t>(rest_.size(), 1));
        }
        return text;
    }

    // A file may hold the look of the next key in its own text. The fixed tail of the reply cannot, so the last
    // occurrence is the true one; between two such texts nobody can tell, and the first one is taken.
    std::string raw(const Key& next) {
        const std::string end = "\"," + quoted_key(next);
        const size_t at = next.kind == Kind::kRaw ? rest_.find(end) : rest_.rfind(end);
        std::string text(until(at));
        take("\"");
        return text;
    }

  private:
    bool take(std::string_view expected) {
        const bool found = rest_.substr(0, expected.size()) == expected;
        rest_.remove_prefix(found ? expected.size() : 0);
        return found;
    }

    std::string_view until(size_t at) {
        const std::string_view text = rest_.substr(0, at);
        rest_.remove_prefix(text.size());
        return text;
    }

    std::string_view rest_;
};

Json value_of(const Key& key, const Key* next, Reader* reader) {
    switch (key.kind) {
        case Kind::kNumber:
            return reader->number();
        case Kind::kWord:
            return reader->word();
        case Kind::kWords:
            return reader->words();
        case Kind::kEscaped:
            return reader->escaped();
        default:
            return reader->raw(*next);
    }
}

Json read_along(const Format& format, Reader* reader) {
    Json json = Json::object();
    bool complete = true;
    for (size_t i = 0; i < format.size(); ++i) {
        complete = complete && reader->skip_to(format[i]);
        json[format[i].name] = complete ? value_of(format[i], &format[i] + 1, reader) : Json();
    }
    return json;
}

const char* name_of(NQ360_STATE state) {
    static const char* const kNames[] = {"started", "progress", "finished", "cancelled", "failed"};
    return kNames[state];
}

}  // namespace

Json read_reply(std::string_view reply, Operation operation) {
    Reader reader(reply);
    Json json = read_along(is_error(reply) ? error_format(operation) : result_format(operation), &reader);
    if (reader.skip_to(kMissing)) {
        json[kMissing.name] = reader.escaped();
    }
    return json;
}

Json read_reply_with_state(NQ360_STATE state, std::string_view reply, Operation operation) {
    Json json = {{"state", name_of(state)}};
    Reader reader(reply);
    const bool is_progress = state == NQ360_STARTED || state == NQ360_PROGRESS;
    json.update(is_progress ? read_along(progress_format(operation), &reader) : read_reply(reply, operation));
    return json;
}

Json read_match(std::string_view reply) {
    return is_error(reply) ? read_reply(reply, Operation::kExport) : Json::parse(reply);
}

bool is_error(std::string_view reply) {
    constexpr std::string_view kStart = "{\"errnum\":";
    return reply.substr(0, kStart.size()) == kStart;
}

int64_t last_number(std::string_view reply, const std::string& key) {
    const std::string name = "\"" + key + "\":";
    const size_t at = reply.rfind(name);
    int64_t number = -1;
    if (at != std::string_view::npos) {
        std::from_chars(reply.begin() + at + name.size(), reply.end(), number);
    }
    return number;
}

std::string json_line(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string text_of(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

int64_t number_of(const Json& json, const char* key, int64_t otherwise) {
    const auto found = json.find(key);
    return found != json.end() && found->is_number() ? found->get<int64_t>() : otherwise;
}
