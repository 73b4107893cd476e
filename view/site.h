// What the server answers: a table of routes, each a function that reads its request, calls the library and writes its
// answer. Who may come in is decided before.
#pragma once

#include <memory>
#include <string>

#include <httplib.h>

#include "adjustments.h"
#include "catalog.h"
#include "door.h"
#include "export_queue.h"
#include "looks.h"
#include "previews.h"
#include "seats.h"
#include "shared_folders.h"

struct SiteOptions {
    std::string folder;
    std::string made;  // where exports go
    std::string page;  // folder of the page's own files
    bool read_only = false;
};

class Site : private httplib::Server {
  public:
    // Throws CommandError when a folder is none.
    explicit Site(const SiteOptions& options);

    // Before the first request: the port that it comes by.
    void open_door(int port);
    const Door& door() const { return *door_; }

    // Answers one request, and ends what it writes to once nobody reads it.
    void answer(httplib::Stream& stream);

    // Long answers stop where they are, and what is exported is cancelled.
    void close();

  private:
    using Request = httplib::Request;
    using Response = httplib::Response;

    void add_routes();
    void add_route(Server& (Server::*method)(const std::string&, Handler), const std::string& path,
                   void (Site::*route)(const Request&, Response&));
    HandlerResponse let_in(const Request& request, Response& response) const;

    void send_shots(const Request& request, Response& response);
    void send_thumbnail(const Request& request, Response& response);
    void send_file(const Request& request, Response& response);
    void send_preview(const Request& request, Response& response);
    void send_space(const Request& request, Response& response);
    void send_match(const Request& request, Response& response);
    void keep_adjustments(const Request& request, Response& response);
    void send_exports(const Request& request, Response& response);
    void add_export(const Request& request, Response& response);
    void send_progress(const Request& request, Response& response);
    void cancel_export(const Request& request, Response& response);

    QueuedJob order_of(const Json& body);

    // A free path in the folder of exports: "lens1-360.jpg", "lens1-360-2.jpg".
    std::string output_for(const std::string& input, const std::string& ending) const;
    std::string free_name(const std::string& wanted) const;

    // Gives what was made its name, or the next free one; returns that.
    std::string place(const std::string& file, const std::string& wanted);

    // Only the name of a file means anything to who looks at the page.
    std::string without_folders(std::string text) const;

    // The strip over the seam: a picture of the folders, by its name.
    void apply_band(const Settings& settings, ExportJob* job) const;

    // The pair whose first file has this name.
    ListedShot pair_of(const std::string& name);

    // The halves of a pair, checked to be there; fills the job's lenses.
    std::array<FileVersion, 2> lenses_of(const ListedShot& pair, ExportJob* job) const;

    SiteOptions options_;
    SharedFolders folders_;
    Looks looks_;
    Catalog catalog_;
    Previews previews_;
    AdjustmentsStore adjustments_;
    std::mutex naming_;  // held from choosing a name until its job is known
    ExportQueue exports_;
    Seats watching_{12};  // connections that wait for progress
    Seats sending_{12};   // files that are being sent
    std::unique_ptr<Door> door_;
};
