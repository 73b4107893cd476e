// Exports of movies in parts that are shorter than any user's, so that short movies have several.
#pragma once

#include <string>

#include "api/export.h"
#include "base/text_owner.h"
#include "media/output_option.h"
#include "support/samples.h"
#include "support/watchdog.h"

namespace test_support {

struct PartsExport {
    Shot shot;
    std::string output;
    int workers = 0;
    int part_pairs = 5;
    int source = 0;
    float start = 0;
    float end = 1000;
    bool aac = false;
    int share = 0;
    int shares = 0;  // 0: the whole movie

    // 0 or -1; the text of the reply goes to *reply if that is wanted.
    int run(std::string* reply = nullptr, int* cancelled = nullptr, const char* marker = nullptr,
            NQ360_CALLBACK callback = nullptr) const {
        const Watchdog watchdog("the export to " + output);
        OutputOption option;
        option.output_size = {512, 256};
        option.workers = workers;
        option.part_pairs = part_pairs;
        option.audio_source = source;
        option.start1 = option.start2 = start;
        option.end1 = option.end2 = end;
        option.looks_for_missing_parts = true;
        option.feather = 0.02;
        option.sound_aac = aac;
        option.share.number = share;
        option.share.count = shares;
        const char* json = nullptr;
        int seen = 0;
        const int result = _NQ360_export(shot.one.c_str(), shot.two.c_str(), output.c_str(), nullptr, marker, option,
                                         &json, &seen, callback);
        const TextPtr owner(const_cast<char*>(json));
        if (reply) {
            *reply = json ? json : "";
        }
        if (cancelled) {
            *cancelled = seen;
        }
        return result;
    }
};

}  // namespace test_support
