// A shot that is open, and the jobs on one.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "api/client.h"
#include "api/inputs.h"
#include "media/open_shot.h"
#include "nq360.h"

struct NQ360_SHOT {
    std::string path1;
    std::string path2;
    AnalyzeResult input1;
    AnalyzeResult input2;
    OpenShot frames;

    Paths paths() const { return {path1.c_str(), path2.c_str(), nullptr, nullptr}; }
    ImageSize lens_size() const { return {input1.width, input1.height}; }
    bool is_picture() const { return input1.is_picture && input2.is_picture; }
};

// Throws a text when a frame is not of the size that its file tells.
void check_frames(const NQ360_SHOT& shot, const OpenShot& frames);

// Makes the last reply, which shot_job sends and frees, and returns its state. To be handed on as a std::ref: a copy
// would need memory where nothing catches the want of it.
using ShotWork = std::function<NQ360_STATE(NQ360_SHOT& shot, const Client& client, const char** reply)>;

// Does work on a shot at the record's start times, from the check of the record to the last reply, whose state it
// returns. Without a shot, it opens one into *opened.
NQ360_STATE shot_job(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, std::unique_ptr<NQ360_SHOT>* opened,
                     const ShotWork& work);

// The reply that names the shot's files, with the size of what was made.
char* make_json_shot(const NQ360_SHOT& shot, ImageSize size);
