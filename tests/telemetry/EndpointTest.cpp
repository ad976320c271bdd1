#include "services/telemetry/Endpoint.h"

#include <gtest/gtest.h>

#include <string>

namespace tessivox::telemetry {
namespace {

TEST(EndpointTest, TakesHttpsAndTheMachineItself) {
    for (const auto* url : {"https://example.org", "HTTPS://example.org:8443/a?b#c", "http://127.0.0.1:80/x",
                            "http://127.1.2.3", "http://localhost:9/", "http://LocalHost", "http://[::1]:8080/x",
                            "https://[2001:db8::1]/", "https://a:1?b@c", "https://example.org/a%20b?c=%2F#%e4"}) {
        EXPECT_TRUE(isAllowed(url)) << url;
    }
}

TEST(EndpointTest, RefusesWhatAClientWouldRefuseLater) {
    for (const auto* tail : {" ", "\n", "\t", "\x7f", "\x01", "%", "%2", "%2g", "%g2", "%%41", "\"", "<", ">", "\\",
                             "^", "`", "{", "|", "}"}) {
        for (const auto* head : {"https://example.org/a", "https://example.org?a", "http://127.0.0.1#a"}) {
            EXPECT_FALSE(isAllowed(std::string(head) + tail)) << head << tail;
        }
    }
    EXPECT_FALSE(isAllowed(" https://example.org"));
}

TEST(EndpointTest, RefusesWhatWouldCrossTheNetworkOpenly) {
    for (const auto* url : {"",
                            "example.org",
                            "http://example.org",
                            "http://10.0.0.1",
                            "ftp://127.0.0.1",
                            "file:///etc/passwd",
                            "https://",
                            "https://:443/",
                            "http://127.0.0.1@example.org/",
                            "http://127.0.0.1:80@example.org/",
                            "http://127.0.0.1\\@x",
                            "http://127.0.0.1.example.org",
                            "http://127.0.0.256",
                            "http://127.0.0",
                            "http://127.0.0.1:99999",
                            "http://127.0.0.1:8o",
                            "http://localhost.example.org",
                            "http://[::1].example.org",
                            "http://[::2]",
                            "http://127.0.0.1%2eexample.org",
                            "https://exa mple.org",
                            "https://ex\nample.org",
                            "http:/127.0.0.1",
                            "http://127.0.0.1 .example.org"}) {
        EXPECT_FALSE(isAllowed(url)) << url;
    }
}

}  // namespace
}  // namespace tessivox::telemetry
