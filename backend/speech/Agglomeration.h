#pragma once

#include <cstddef>
#include <vector>

#include "backend/speech/Voice.h"

namespace tessivox::backend {

/// Parts of the speech that one voice speaks.
struct VoiceCluster {
    Voice voice;
    std::vector<std::size_t> parts;  ///< numbers
};

/// Joins clusters pair by pair, the nearest first. Keeps the distances of all pairs, since a merger changes
/// those of one cluster only.
class Agglomeration {
public:
    explicit Agglomeration(std::vector<VoiceCluster> clusters);

    /// Until no two are one voice.
    void mergeAlike();
    /// Gives each cluster that holds less than this share of all frames to its nearest, the smallest first.
    void foldSmallerThan(double share);
    void mergeDownTo(std::size_t count);
    std::vector<VoiceCluster> take() { return std::move(clusters_); }

private:
    struct Pair {
        std::size_t first = 0;
        std::size_t second = 0;
        double distance = 0;
    };
    std::vector<VoiceCluster> clusters_;
    std::vector<std::vector<double>> distances_;

    void measure(std::size_t cluster);
    Pair nearestPair() const;
    std::size_t nearestTo(std::size_t cluster) const;
    void merge(std::size_t into, std::size_t from);
};

}  // namespace tessivox::backend
