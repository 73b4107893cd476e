// What an export's arguments come to for one shot, once its files have told what they are. Index 0 is lens 1.
#pragma once

#include <string>

#include "jobs/description.h"
#include "jobs/export_arguments.h"
#include "jobs/library.h"
#include "jobs/proposal.h"

// What a panorama is called in a folder, beyond the name of lens 1: "-360.jpg".
std::string usual_ending(bool makes_picture, const std::string& lens1);

// Tells of a size that is no panorama's. Throws UsageError where it is too large for any picture.
void check_size(Size size);

// Throws CommandError when nothing of a movie is left at its start time.
void check_starts(const PairArguments& pair, const Description (&lenses)[2]);

// Throws CommandError when the chosen input has no sound although it was asked for. Returns what is to be told where
// it was not, or nothing.
std::string check_sound(const ExportArguments& arguments, bool asked_for);

// What is to be told where one movie gives more than the other, or nothing.
std::string uneven_lengths(const PairArguments& pair, const Description (&lenses)[2]);

// The job of these arguments, with the capture date of lens 1 where none was given.
ExportJob complete_job(const ExportArguments& arguments, const Description (&lenses)[2]);

// Sets what a match proposes, and returns what is to be told. Throws CommandError when it should not be used.
std::string apply_match(const Proposal& proposal, ExportJob* job);
