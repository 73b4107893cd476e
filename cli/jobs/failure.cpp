#include "jobs/failure.h"

#include <filesystem>
#include <initializer_list>
#include <regex>

#include "jobs/size_text.h"
#include "terminal/console.h"

namespace {

std::string join(const std::string& name, const std::string& what) {
    return (name.empty() ? "\"\"" : printable(name)) + ": " + what;
}

// The text of another library, in brackets.
std::string detail_of(const Json& error) {
    const std::string text = printable(text_of(error, "api_errstr"));
    return text.empty() ? "" : " (" + text + ")";
}

std::string unreadable(const std::string& name, const Json& error) {
    return join(name,
                "cannot be read as a picture or movie" + detail_of(error) + "; the file may be damaged or cut short");
}

std::string not_writable(const std::string& name, const Json& error, std::initializer_list<std::string> inputs) {
    namespace fs = std::filesystem;
    std::error_code unknown;
    const fs::path folder = fs::path(name).has_parent_path() ? fs::path(name).parent_path() : fs::path(".");
    if (!fs::is_directory(folder, unknown)) {
        return join(name, "its folder does not exist");
    }
    for (const std::string& input : inputs) {
        if (fs::equivalent(name, input, unknown)) {
            return join(name, "is an input itself; choose another name");
        }
    }
    return join(name, "cannot be written" + detail_of(error) + "; check the permissions of the file and its folder");
}

unsigned long long size_of(const std::string& path) {
    std::error_code failed;
    const auto size = std::filesystem::file_size(path, failed);
    return failed ? 0 : size;
}

std::string disk_is_full(const std::string& name, unsigned long long needed) {
    return join(name, "not enough room: " + bytes_text(needed) + " are needed on its volume, " +
                          bytes_text(NQ360_freesize(name.c_str())) + " are free");
}

// The sizes that an export's reply complains of, in brackets.
std::string sizes_in(const Json& error) {
    static const std::regex kBoth("width1:([0-9]+) width2:([0-9]+) height1([0-9]+) height2:([0-9]+)");
    static const std::regex kOne("width:([0-9]+)");
    const std::string text = text_of(error, "api_errstr");
    std::smatch found;
    if (std::regex_search(text, found, kBoth)) {
        return " (" + found.str(2) + "x" + found.str(4) + ", not " + found.str(1) + "x" + found.str(3) + ")";
    }
    return std::regex_search(text, found, kOne) ? ", not " + found.str(1) : "";
}

// The library's own words, for what has no better ones here.
std::string otherwise(const std::string& name, const Json& error) {
    const std::string said = printable(text_of(error, "errstr"));
    const std::string detail = printable(text_of(error, "api_errstr"));
    const bool says_nothing = said.empty() || said == "an unknown error occurred" || said == "Could not write video";
    if (!says_nothing) {
        return join(name, said + detail_of(error));
    }
    return join(name, detail.empty() ? "failed; --verbose shows what the library says" : detail);
}

// What the library says of "input 1" or "input 2", said of the file; empty when it speaks of neither.
std::string input_failure(const Json& error, const ExportJob& job) {
    static const std::regex kInput("input ([12]) (.*)");
    const std::string text = printable(text_of(error, "api_errstr"));
    std::smatch found;
    if (!std::regex_match(text, found, kInput)) {
        return "";
    }
    const bool is_cut = found.str(2).rfind("is not whole", 0) == 0;
    return join(job.lens[found.str(1) == "1" ? 0 : 1],
                found.str(2) + (is_cut ? "; --partial exports what is there" : ""));
}

}  // namespace

std::string analysis_failure(const Json& error, const std::string& path, const std::string& thumbnail) {
    const std::string number = text_of(error, "errnum");
    const std::string said = text_of(error, "errstr");
    if (number == "10000") {
        return join(path, "there is no such file");
    }
    if (number == "10001" && said == "Not Movie & JPEG") {
        return join(path, "neither a picture (.jpg, .jpeg) nor a movie (.mov, .mp4) by its name");
    }
    if (number == "10001") {
        return unreadable(path, error);
    }
    if (number == "10003") {
        return not_writable(thumbnail, error, {path});
    }
    if (number == "10004") {
        return disk_is_full(thumbnail, kHeadroom);
    }
    if (said == "Could Not Write Thumbnail") {
        return join(path, "no thumbnail can be made" + detail_of(error) + "; the file may be damaged");
    }
    return otherwise(path, error);
}

std::string no_picture(const std::string& path) {
    return join(path, "holds no picture that can be read; it may be damaged or cut short");
}

std::string sound_failure(const Json& error, const std::string& movie, const std::string& output) {
    const std::string number = text_of(error, "errnum");
    const std::string said = text_of(error, "errstr");
    if (number == "20000") {
        return join(movie, "there is no such file");
    }
    if (number == "20001" && said == "Movie Has No Audio Stream!!") {
        return join(movie, "has no sound");
    }
    if (number == "20001") {
        return unreadable(movie, error);
    }
    if (number == "20003") {
        return not_writable(output, error, {movie});
    }
    if (number == "20004") {
        return disk_is_full(output, kHeadroom);
    }
    if (said == "Colud Not Write Audio!!") {
        return join(output, "the sound cannot be written" + detail_of(error) +
                                "; files named .wav, .mov, .caf or .aiff can hold it");
    }
    return otherwise(output, error);
}

std::string missing_parts(const Json& result, const ExportJob& job) {
    std::string text = printable(text_of(result, "missing"));
    for (int i = 1; i >= 0; --i) {
        const std::string number = "input " + std::to_string(i + 1);
        const size_t at = text.find(number);
        if (at != std::string::npos) {
            text.replace(at, number.size(), printable(job.lens[i]));
        }
    }
    return text;
}

std::string export_failure(const Json& error, const ExportJob& job) {
    const std::string number = text_of(error, "errnum");
    const std::string said = text_of(error, "errstr");
    if (number == "30000") {
        return join(job.lens[said == "Input file1 not exiists" ? 0 : 1], "there is no such file");
    }
    if (said == "Analyze Error InputFile1" || said == "Analyze Error InputFile2") {
        return join(job.lens[said.back() == '1' ? 0 : 1], "cannot be read as a picture or movie");
    }
    if (said == "Movie/Image different width or height") {
        return join(job.lens[1],
                    "not of the size of " + printable(job.lens[0]) + sizes_in(error) + "; both must be of one shot");
    }
    if (said == "Movie/Image width not in 3888 , 1936 , 1440") {
        return join(job.lens[0],
                    "not a picture of this camera, which are 3888, 1936 or 1440 pixels wide" + sizes_in(error));
    }
    if (said == "Could not open file") {
        return unreadable(job.lens[0] + ", " + job.lens[1], error);
    }
    if (number == "30003") {
        return not_writable(job.output, error, {job.lens[0], job.lens[1], job.band.value_or("")});
    }
    if (number == "30004") {
        return disk_is_full(job.output, size_of(job.lens[0]) + size_of(job.lens[1]) + kHeadroom);
    }
    const std::string input = input_failure(error, job);
    return input.empty() ? otherwise(job.output, error) : input;
}

std::string join_failure(const Json& error, const JoinJob& job) {
    const std::string number = text_of(error, "errnum");
    const std::string file = text_of(error, "movie_path1");
    if (number == "30000") {
        return join(file, "there is no such file");
    }
    if (number == "30001") {
        return join(file, printable(text_of(error, "api_errstr")));
    }
    if (number == "30003") {
        return join(job.output, "cannot be written" + detail_of(error));
    }
    if (number == "30004") {
        unsigned long long needed = kHeadroom;
        for (const std::string& part : job.files) {
            needed += size_of(part);
        }
        return disk_is_full(job.output, needed);
    }
    return otherwise(job.output, error);
}
