// Who may come in: whoever brings the key, once in the address and from then on in a cookie, and only from the page
// itself. A page of another site that the same browser shows is held off even when it has made the browser call here.
#pragma once

#include <string>

#include <httplib.h>

class Door {
  public:
    // The key is 128 random bits.
    explicit Door(int port);

    enum class Answer { kRefused, kWelcome, kKnown };  // kWelcome: has the key in the address and is to get the cookie
    Answer ask(const httplib::Request& request) const;

    std::string cookie() const;   // as it is set
    std::string address() const;  // with the key

  private:
    std::string host_;
    std::string cookie_name_;
    std::string key_;
};
