#include "commands/preview.h"

#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/replies.h"
#include "jobs/whole_file.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"

int write_preview(const ExportJob& job) {
    const Stoppable stoppable("the preview is made");
    std::string jpeg;
    const Outcome outcome = preview_panorama(job, &jpeg);
    if (interrupted()) {
        console().complain("cancelled");
        return kCancelled;
    }
    if (outcome.state != NQ360_FINISHED) {
        throw CommandError(export_failure(read_reply(outcome.reply, Operation::kExport), job));
    }
    write_whole(job.output, jpeg);
    if (!console().quiet()) {
        console().print(printable(job.output) + ": preview, " + std::to_string(last_number(outcome.reply, "width")) +
                        "x" + std::to_string(last_number(outcome.reply, "height")) + "\n");
    }
    return kDone;
}
