#pragma once

#include <gtest/gtest.h>

#include <ostream>

#include "platform/linux/posix/EventLoop.h"
#include "platform/linux/pulse/SoundServerLink.h"
#include "support/SoundServer.h"
#include "support/TurnLoop.h"

namespace tessivox::testing {

using namespace std::chrono_literals;

inline void PrintTo(SoundServerKind kind, std::ostream* output) { *output << nameOf(kind); }

/// A test against a private server of its own, once with each kind of server.
class SoundTest : public ::testing::TestWithParam<SoundServerKind> {
protected:
    SoundServer server{GetParam()};
    posix::EventLoop loop;

    /// Whether the server tells this client of another default microphone than it tells a new one. PipeWire 0.3.65 does
    /// so to about one of 600 clients, as long as they are connected; nothing can be tested through such a link.
    bool isMisledAboutTheDefault(pulse::SoundServerLink& link) {
        const auto connection = finish(loop, link.connection());
        return finish(loop, connection->defaults()).source + "\n" != server.run({"pactl", "get-default-source"});
    }
};

inline std::string nameOfServer(const ::testing::TestParamInfo<SoundServerKind>& info) { return nameOf(info.param); }

}  // namespace tessivox::testing

#define TESSIVOX_WITH_BOTH_SERVERS(suite)                                                        \
    INSTANTIATE_TEST_SUITE_P(On, suite,                                                          \
                             ::testing::Values(::tessivox::testing::SoundServerKind::pulseAudio, \
                                               ::tessivox::testing::SoundServerKind::pipeWire),  \
                             ::tessivox::testing::nameOfServer)
