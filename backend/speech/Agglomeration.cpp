#include "backend/speech/Agglomeration.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace tessivox::backend {
namespace {

/// In the middle between what halves of one voice and what two voices keep from each other.
constexpr double kPrice = 2.5;

double distance(const VoiceCluster& a, const VoiceCluster& b) { return Voice::distance(a.voice, b.voice, kPrice); }

}  // namespace

Agglomeration::Agglomeration(std::vector<VoiceCluster> clusters)
    : clusters_(std::move(clusters)), distances_(clusters_.size(), std::vector<double>(clusters_.size())) {
    for (std::size_t i = 0; i < clusters_.size(); ++i)
        for (std::size_t k = i + 1; k < clusters_.size(); ++k)
            distances_[i][k] = distances_[k][i] = distance(clusters_[i], clusters_[k]);
}

void Agglomeration::mergeAlike() {
    while (clusters_.size() > 1) {
        const Pair pair = nearestPair();
        if (pair.distance >= 0) return;
        merge(pair.first, pair.second);
    }
}

void Agglomeration::foldSmallerThan(double share) {
    const auto fewerFrames = [](const VoiceCluster& a, const VoiceCluster& b) {
        return a.voice.frames() < b.voice.frames();
    };
    double total = 0;
    for (const VoiceCluster& cluster : clusters_) total += cluster.voice.frames();
    while (clusters_.size() > 1) {
        const auto smallest = std::min_element(clusters_.begin(), clusters_.end(), fewerFrames);
        if (smallest->voice.frames() >= share * total) return;
        const auto index = static_cast<std::size_t>(smallest - clusters_.begin());
        merge(nearestTo(index), index);
    }
}

void Agglomeration::mergeDownTo(std::size_t count) {
    while (clusters_.size() > count) {
        const Pair pair = nearestPair();
        merge(pair.first, pair.second);
    }
}

void Agglomeration::measure(std::size_t cluster) {
    for (std::size_t other = 0; other < clusters_.size(); ++other)
        if (other != cluster)
            distances_[cluster][other] = distances_[other][cluster] = distance(clusters_[cluster], clusters_[other]);
}

Agglomeration::Pair Agglomeration::nearestPair() const {
    Pair nearest{0, 1, std::numeric_limits<double>::infinity()};
    for (std::size_t i = 0; i < clusters_.size(); ++i)
        for (std::size_t k = i + 1; k < clusters_.size(); ++k)
            if (distances_[i][k] < nearest.distance) nearest = {i, k, distances_[i][k]};
    return nearest;
}

std::size_t Agglomeration::nearestTo(std::size_t cluster) const {
    std::size_t nearest = cluster == 0 ? 1 : 0;
    for (std::size_t other = 0; other < clusters_.size(); ++other)
        if (other != cluster && distances_[cluster][other] < distances_[cluster][nearest]) nearest = other;
    return nearest;
}

/// The last cluster takes the place of the one that goes.
void Agglomeration::merge(std::size_t into, std::size_t from) {
    VoiceCluster& target = clusters_[into];
    target.voice.add(clusters_[from].voice);
    target.parts.insert(target.parts.end(), clusters_[from].parts.begin(), clusters_[from].parts.end());
    const std::size_t last = clusters_.size() - 1;
    if (from != last) clusters_[from] = std::move(clusters_[last]);
    std::swap(distances_[from], distances_[last]);
    for (std::vector<double>& row : distances_) std::swap(row[from], row[last]);
    clusters_.pop_back();
    distances_.pop_back();
    for (std::vector<double>& row : distances_) row.pop_back();
    measure(into == last ? from : into);
}

}  // namespace tessivox::backend
