// Plays a test signal as a process of its own: sound_player SINK sine HZ [HZ-RIGHT] | clicks PERIOD-MS.
// Prints "playing" once it is heard; for each line on standard input, the host time of the signal's frame 0 in
// nanoseconds; ends with its standard input.

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include "support/SoundPlayer.h"

namespace {

tessivox::testing::SoundSignal parseSignal(int count, char** words) {
    const std::string kind = words[2];
    const double first = std::stod(words[3]);
    if (kind == "clicks") return tessivox::testing::clickSignal(tessivox::base::fromSeconds(first / 1000));
    return tessivox::testing::sineSignal(first, count > 4 ? std::stod(words[4]) : first);
}

}  // namespace

int main(int count, char** words) try {
    if (count < 4) throw std::runtime_error("usage: sound_player SINK sine HZ [HZ-RIGHT] | clicks PERIOD-MS");
    tessivox::testing::SoundPlayer player({}, words[1], parseSignal(count, words));
    std::cout << "playing" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << player.origin().time_since_epoch().count() << std::endl;
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
