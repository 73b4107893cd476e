#include "request_reader.h"

#include <string>

#include <gtest/gtest.h>

namespace {

int status_of(const std::string& request) {
    RequestReader reader;
    reader.add(request);
    return reader.status();
}

std::string with_header(const std::string& header) {
    return "GET / HTTP/1.1\r\n" + header + "\r\n\r\n";
}

TEST(RequestReader, IsWholeWithItsLastByte) {
    const std::string request = "POST /api/match HTTP/1.1\r\ncontent-length: 3\r\n\r\nabc";
    RequestReader reader;
    for (size_t i = 0; i < request.size(); ++i) {
        EXPECT_EQ(reader.status(), 0) << i;
        reader.add(request.substr(i, 1));
    }
    EXPECT_EQ(reader.status(), 200);
    reader.add("more");
    EXPECT_EQ(reader.text(), request);
}

TEST(RequestReader, LeavesWhatComesBehindIt) {
    RequestReader reader;
    reader.add(with_header("Host: x") + "GET /another HTTP/1.1\r\n\r\n");
    EXPECT_EQ(reader.text(), with_header("Host: x"));
}

TEST(RequestReader, RefusesWhatIsNoRequest) {
    for (const char* line : {"GET", "GET /", "GET  HTTP/1.1", "GET / HTTP/2.0", "GET x HTTP/1.1", "GET /a b HTTP/1.1",
                             "GET /\x01 HTTP/1.1", "", " / HTTP/1.1 "}) {
        EXPECT_EQ(status_of(std::string(line) + "\r\nHost: x\r\n\r\n"), 400) << line;
    }
    EXPECT_EQ(status_of(with_header("no colon")), 400);
    EXPECT_EQ(status_of(with_header(": x")), 400);
    EXPECT_EQ(status_of(with_header("Host : x")), 400);
    EXPECT_EQ(status_of(with_header(std::string("A: \0", 4))), 400);
}

TEST(RequestReader, BoundsWhatItTakes) {
    EXPECT_EQ(status_of("GET /" + std::string(2030, 'a') + " HTTP/1.1\r\n\r\n"), 200);
    EXPECT_EQ(status_of("GET /" + std::string(2050, 'a') + " HTTP/1.1\r\n\r\n"), 414);
    EXPECT_EQ(status_of(std::string(2049, 'a')), 414);
    EXPECT_EQ(status_of(with_header("A: " + std::string(8100, 'a'))), 200);
    EXPECT_EQ(status_of(with_header("A: " + std::string(8200, 'a'))), 431);
    EXPECT_EQ(status_of(with_header("Content-Length: 65537")), 413);
    EXPECT_EQ(status_of(with_header("Content-Length: 65536")), 0);
}

TEST(RequestReader, TakesNoBodyOfUnknownSize) {
    EXPECT_EQ(status_of(with_header("Transfer-Encoding: chunked")), 501);
    EXPECT_EQ(status_of(with_header("content-encoding:gzip")), 501);
    EXPECT_EQ(status_of(with_header("Expect: 100-continue")), 417);
    for (const char* size : {"", "-1", "+1", "1x", "99999999999999999999999", "1, 1"}) {
        EXPECT_EQ(status_of(with_header("Content-Length: " + std::string(size))), 400) << size;
    }
    EXPECT_EQ(status_of(with_header("Content-Length: 0\r\nContent-Length: 0")), 400);
}

TEST(RequestReader, HandsOnRangesThatCanBeRead) {
    for (const char* range : {"bytes=0-", "bytes=5-4", "bytes=0-1, 5-6", "bytes=-7"}) {
        EXPECT_EQ(status_of(with_header("range: " + std::string(range))), 200) << range;
    }
    for (const char* range : {"", "x", "lines=1-2", "bytes=a-b", "Bytes=0-", "bytes=0-\t"}) {
        EXPECT_EQ(status_of(with_header("Range: " + std::string(range) + "x")), 400) << range;
    }
    EXPECT_EQ(status_of(with_header("Range: bytes=" + std::string(94, '-'))), 200);
    EXPECT_EQ(status_of(with_header("Range: bytes=" + std::string(95, '-'))), 400);
}

}  // namespace
