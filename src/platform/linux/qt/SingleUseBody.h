#pragma once

#include <QByteArray>
#include <QIODevice>
#include <algorithm>
#include <utility>

namespace tessivox::qt {

/// What a request uploads, to be read once. Qt sends a request again, a POST too, when the server closes the connection
/// without an answer; the server may have done its work by then. From this it cannot.
class SingleUseBody final : public QIODevice {
public:
    explicit SingleUseBody(QByteArray bytes) : bytes_(std::move(bytes)) { open(ReadOnly | Unbuffered); }
    bool isSequential() const override { return true; }
    bool seek(qint64) override { return false; }
    qint64 bytesAvailable() const override { return bytes_.size() - position_; }

protected:
    qint64 readData(char* target, qint64 most) override {
        const auto count = std::min<qint64>(most, bytes_.size() - position_);
        if (count == 0) return -1;
        std::copy_n(bytes_.constData() + position_, count, target);
        position_ += count;
        return count;
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    const QByteArray bytes_;
    qint64 position_ = 0;
};

}  // namespace tessivox::qt
