#include "jobs/replies.h"

#include <charconv>
#include <vector>

namespace {

enum class Kind {
    kNumber,
    kWord,     // true or false
    kEscaped,  // a text whose quotes and backslashes were escaped
    kRaw,      // a text as it is: its end is told by the key that follows
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
};

Format error_format(Operation operation) {
    Format format = {{"errnum", Kind::kEscaped},
                     {"errstr", Kind::kEscaped},
                     {"api_errnum", Kind::kNumber},
                     {"api_errstr", Kind::kRaw}};
    switch (operation) {
        case Operation::kAnalysis:
            format.push_back({"movie_path", Kind::kEscaped});
            break;
        case Operation::kSound:
            format.insert(format.end(), {{"movie_path", Kind::kEscaped}, {"audio_path", Kind::kEscaped}});
            break;
        case Operation::kExport:
            format.insert(
                format.end(),
                {{"movie_path1", Kind::kEscaped}, {"movie_path2", Kind::kEscaped}, {"export_path", Kind::kEscaped}});
            break;
    }
    return format;
}

Format result_format(Operation operation) {
    switch (operation) {
        case Operation::kAnalysis:
            return kDescription;
        case Operation::kSound:
            return {{"movie_path", Kind::kEscaped}, {"audio_path", Kind::kEscaped}};
        default:
            return {{"movie_path1", Kind::kEscaped}, {"movie_path2", Kind::kEscaped}, {"export_path", Kind::kEscaped}};
    }
}

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

}  // namespace

Json read_reply(std::string_view reply, Operation operation) {
    const Format format = is_error(reply) ? error_format(operation) : result_format(operation);
    Json json = Json::object();
    Reader reader(reply);
    bool complete = true;
    for (size_t i = 0; i < format.size(); ++i) {
        const Key& key = format[i];
        complete = complete && reader.skip_to(key);
        if (!complete) {
            json[key.name] = nullptr;
        } else if (key.kind == Kind::kNumber) {
            json[key.name] = reader.number();
        } else if (key.kind == Kind::kWord) {
            json[key.name] = reader.word();
        } else if (key.kind == Kind::kEscaped) {
            json[key.name] = reader.escaped();
        } else {
            json[key.name] = reader.raw(format[i + 1]);
        }
    }
    return json;
}

bool is_error(std::string_view reply) {
    constexpr std::string_view kStart = "{\"errnum\":";
    return reply.substr(0, kStart.size()) == kStart;
}

int64_t frame_count_of(std::string_view reply) {
    constexpr std::string_view kKey = "\"frame_count\":";
    const size_t at = reply.rfind(kKey);
    int64_t count = -1;
    if (at != std::string_view::npos) {
        std::from_chars(reply.begin() + at + kKey.size(), reply.end(), count);
    }
    return count;
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
