// How answers are written, and what is refused.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <httplib.h>

#include "jobs/replies.h"

// Refuses a request with a status, in words for a person.
struct Refusal : std::runtime_error {
    Refusal(int status_, const std::string& why) : std::runtime_error(why), status(status_) {}
    int status;
};

void send_json(const Json& json, httplib::Response& response);

// {"error": "..."}
void send_refusal(int status, const std::string& why, httplib::Response& response);

// Answers 304 when this version is what the browser has.
bool is_known_version(const httplib::Request& request, const std::string& version, httplib::Response& response);

// The one value of that name in the address; throws Refusal without it.
std::string parameter(const httplib::Request& request, const char* name);

// The object in the body; throws Refusal for anything else.
Json body_of(const httplib::Request& request);

// Sends what is asked for of an open file. A range without an end, as players ask for, gets a piece: they ask for the
// next one, and nothing waits for them while they show it. `seat` is held until it is sent.
void send_part(int descriptor, size_t size, const std::string& range, const std::string& type,
               const std::shared_ptr<void>& seat, httplib::Response& response);
