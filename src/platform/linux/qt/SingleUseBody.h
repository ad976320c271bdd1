#pragma once

#include <QIODevice>
#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessivox::qt {

/// What a request uploads, to be read once. Qt sends a request again, a POST too, when the server closes the connection
/// without an answer; the server may have done its work by then. From this it cannot.
class SingleUseBody final : public QIODevice {
public:
    using Pieces = std::vector<std::shared_ptr<const std::string>>;

    explicit SingleUseBody(Pieces pieces) : pieces_(std::move(pieces)) {
        for (const auto& piece : pieces_) left_ += static_cast<qint64>(piece->size());
        open(ReadOnly | Unbuffered);
    }
    bool isSequential() const override { return true; }
    bool seek(qint64) override { return false; }
    qint64 bytesAvailable() const override { return left_; }

protected:
    qint64 readData(char* target, qint64 most) override {
        if (left_ == 0) return -1;
        while (position_ == pieces_[piece_]->size()) {
            ++piece_;
            position_ = 0;
        }
        const auto rest = std::string_view(*pieces_[piece_]).substr(position_);
        const auto count = std::min(rest.size(), static_cast<std::size_t>(std::max<qint64>(most, 0)));
        std::copy_n(rest.data(), count, target);
        position_ += count;
        left_ -= static_cast<qint64>(count);
        return static_cast<qint64>(count);
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    const Pieces pieces_;
    std::size_t piece_ = 0;
    std::size_t position_ = 0;  ///< in the piece
    qint64 left_ = 0;
};

}  // namespace tessivox::qt
