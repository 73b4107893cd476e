// The shares of a movie, put together.
#include <algorithm>
#include <string>
#include <vector>

#include "api/client.h"
#include "api/inputs.h"
#include "api/options.h"
#include "api/panorama_metadata.h"
#include "api/reply.h"
#include "api/share_texts.h"
#include "api/unexpected.h"
#include "base/files.h"
#include "base/log.h"
#include "base/output_place.h"
#include "base/text.h"
#include "media/libavif.h"
#include "media/share.h"
#include "media/share_file.h"

namespace {

// Why nothing is joined, as the reply tells it.
struct Refusal {
    int errnum;
    const char* errstr;
    std::string why;
    int code = -1;
};

class Join {
  public:
    Join(const NQ360_JOIN_OPTIONS& options, const Client& client)
        : options_(options),
          client_(client),
          files_(options.files, options.files + options.file_count),
          place_(options.output, OutputPlace::kBeside) {
        paths_ = {files_.front().c_str(), "", options.output, options.output};
    }

    // Sends the last reply, whose state it returns.
    NQ360_STATE run() {
        try {
            check_paths();
            return write();
        } catch (const Refusal& refusal) {
            return end(NQ360_FAILED, refusal);
        } catch (const ShareFault& fault) {
            paths_.movie1 = fault.path.c_str();
            std::string why = fault.what();
            replace_string(why);
            return end(NQ360_FAILED, {30001, "Could not open file", why});
        } catch (...) {
            place_.discard();
            answer_unexpected(client_, kBareExportReply, [&](const char* text) {
                return make_json_errstr3(paths_.movie1, "", paths_.output, "an unknown error occurred", text, 39999,
                                         -1);
            });
            return NQ360_FAILED;
        }
    }

  private:
    NQ360_STATE end(NQ360_STATE state, const Refusal& refusal) {
        place_.discard();
        const char* reply = nullptr;
        fail(paths_, refusal.errstr, refusal.why.c_str(), refusal.errnum, refusal.code, &reply);
        client_.send(state, reply);
        return state;
    }

    void check_paths() {
        uint64_t needed = 0;
        for (const std::string& file : files_) {
            paths_.movie1 = file.c_str();
            if (!fileExists(file.c_str())) {
                throw Refusal{30000, "Input file1 not exiists", ""};
            }
            if (isSameFile(file.c_str(), options_.output)) {
                throw Refusal{30003, "export file not writable", "it is one of the files to join"};
            }
            needed += nq360_filesize(file.c_str(), nullptr);
        }
        paths_.movie1 = files_.front().c_str();
        if (!options_.output) {
            throw Refusal{30003, "export file not writable", "there is no name to write to"};
        }
        if (!isWritable(options_.output) || isSameFile(options_.output, options_.cancel_path)) {
            throw Refusal{30003, "export file not writable", ""};
        }
        if (!has_room(options_.output, needed)) {
            throw Refusal{30004, "disk is full", ""};
        }
        if (const std::string fault = place_.prepare(); !fault.empty()) {
            throw Refusal{30003, "export file not writable", fault};
        }
        paths_.written = place_.path();
    }

    NQ360_STATE write() {
        const ShareSet shares = gather_shares(files_);
        libavIF media(nullptr);
        ReportProgress report;
        if (client_.listens()) {
            report = [this](NQ360_STATE state, int64_t frames) {
                return client_.send(state, make_json_result3(paths_.movie1, "", paths_.output, state,
                                                             static_cast<unsigned long long>(frames)));
            };
        }
        const int64_t pairs = std::max<int64_t>(shares.header.integer("pairs"), 0);
        const bool unwanted = report && report(NQ360_STARTED, pairs);
        if (unwanted || media.write_joined(paths_.written, options_.cancel_path, shares, report) < 0) {
            if (unwanted || media.cancelled) {
                return end(NQ360_CANCELLED, {39999, "Canceled", ""});
            }
            throw Refusal{39999, "Could not write video", media.error_text, media.error_code};
        }
        write_metadata(shares.header);
        place_.keep();
        client_.send(NQ360_FINISHED, make_json_result3(paths_.movie1, "", paths_.output, NQ360_FINISHED, ~0ULL));
        return NQ360_FINISHED;
    }

    void write_metadata(const ShareHeader& header) const {
        const ImageSize size = {static_cast<int>(header.integer("picture width")),
                                static_cast<int>(header.integer("picture height"))};
        const bool keep = header.integer("keep_metadata") != 0;
        write_metadata_of_movie(paths_.written, size, header.text("datetime"),
                                keep ? std::optional(metadata_in(header)) : std::nullopt, header.integer("web") != 0);
    }

    const NQ360_JOIN_OPTIONS& options_;
    const Client& client_;
    const std::vector<std::string> files_;
    OutputPlace place_;
    Paths paths_{};
};

}  // namespace

int NQ360_join(const NQ360_JOIN_OPTIONS* options) {
    if (!options) {
        return NQ360_FAILED;
    }
    const LogSink log(log_of(options->log, options->user));
    const Client client(options->reply, options->user);
    try {
        std::string fault = fault_of(*options);
        for (size_t i = 0; fault.empty() && i < options->file_count; ++i) {
            fault = options->files[i] ? "" : "files: must not hold null";
        }
        if (!fault.empty()) {
            const char* reply = nullptr;
            fail({}, "bad option", fault.c_str(), 30005, -1, &reply);
            client.send(NQ360_FAILED, reply);
            return NQ360_FAILED;
        }
        return Join(*options, client).run();
    } catch (...) {
        answer_unexpected(client, kBareExportReply, [](const char* text) {
            return make_json_errstr3("", "", "", "an unknown error occurred", text, 39999, -1);
        });
        return NQ360_FAILED;
    }
}
