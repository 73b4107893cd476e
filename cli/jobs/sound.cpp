#include "jobs/sound.h"

#include "jobs/library.h"
#include "jobs/replies.h"

// Asked to write it nowhere, the library first says so when there is none.
bool has_sound(const std::string& movie) {
    SoundJob job;
    job.movie = movie;
    const Json reply = read_reply(extract_sound(job, {}).reply, Operation::kSound);
    return text_of(reply, "errstr") != "Movie Has No Audio Stream!!";
}
