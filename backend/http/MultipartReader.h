#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tessivox::backend {

/// Reads a body of multipart/form-data (RFC 7578) while it arrives, which has to be one part named "file" and nothing
/// else. Holds no more of it than a part's header or a delimiter.
class MultipartReader {
public:
    static constexpr std::size_t kLongestHeader = 16 * 1024;  ///< bytes
    /// Gets the file's bytes, piece by piece; false: no more, please.
    using Sink = std::function<bool(std::span<const char>)>;

    /// The boundary that a Content-Type names; absent if it is another type or has none.
    static std::optional<std::string> boundary(std::string_view contentType);

    MultipartReader(std::string_view boundary, Sink sink);

    /// False once the body cannot be what it has to be, or the sink had enough.
    bool take(std::span<const char> bytes);
    /// Whether the closing delimiter has come.
    bool isComplete() const { return state_ == State::done; }

private:
    enum class State { opening, header, content, afterContent, done, failed };

    const std::string delimiter_;  ///< with the line break before it
    const Sink sink_;
    State state_ = State::opening;
    std::string held_;  ///< what has come and is not yet understood

    /// Each takes what it can from held_; whether there is more to do at once.
    bool takeOpening();
    bool takeHeader();
    bool takeContent();
    bool takeEnd();
    bool step();
    bool fail();
};

}  // namespace tessivox::backend
