#pragma once

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Completion.h"
#include "base/ports/HttpClient.h"

namespace tessivox::testing {

/// A server that writes down what it is asked. A request gets the first answer that was scripted for a text in its URL,
/// else what is usual there, else `status`; without any the server is not there.
class FakeHttpClient final : public base::HttpClient {
public:
    /// Opened by succeed(true), whenever the test pleases.
    using Gate = base::Completion<bool>;
    struct Answer {
        base::HttpResponse response;
        std::optional<base::HttpErrorCode> failure;  ///< instead of the response
        std::optional<Gate> gate;                    ///< the request stays open until then

        /// server.will("/usage", FakeHttpClient::json(200, "{}").when(gate))
        Answer when(Gate opened) && {
            gate = std::move(opened);
            return std::move(*this);
        }
    };
    static Answer json(int status, std::string body) {
        Answer answer;
        answer.response.status = status;
        answer.response.headers = {{"Content-Type", "application/json"}};
        answer.response.body = std::move(body);
        return answer;
    }
    static Answer failure(base::HttpErrorCode code) {
        Answer answer;
        answer.failure = code;
        return answer;
    }
    /// The request stays open for ever.
    static Answer silence() { return Answer().when({}); }

    std::vector<base::HttpRequest> requests;
    /// The status of answers that nobody scripted; absent: the connection is refused.
    std::optional<int> status;
    /// While true a request that nobody scripted stays open.
    bool isSilent = false;
    /// Requests without an answer so far, and those whose task was destroyed before there was one.
    int open = 0;
    int abandoned = 0;

    /// The answer to the next request with this text in its URL that has none yet.
    void will(const std::string& part, Answer answer) { scripted_.emplace_back(part, std::move(answer)); }
    /// The answer to all such requests beyond the scripted ones; the longest text that fits counts.
    void usually(const std::string& part, Answer answer) { usual_.insert_or_assign(part, std::move(answer)); }

    /// The requests with this text in their URL.
    std::vector<base::HttpRequest> requestsTo(std::string_view part) const {
        std::vector<base::HttpRequest> found;
        std::ranges::copy_if(requests, std::back_inserter(found),
                             [part](const auto& request) { return has(request.url, part); });
        return found;
    }
    static std::string bodyOf(const base::HttpRequest& request) {
        auto body = request.body;
        for (const auto& piece : request.rest) body += *piece;
        return body;
    }
    /// Absent if the request has no such header.
    static std::optional<std::string> header(const base::HttpRequest& request, std::string_view name) {
        const auto found = std::ranges::find(request.headers, name, &std::pair<std::string, std::string>::first);
        return found == request.headers.end() ? std::nullopt : std::optional(found->second);
    }

    base::Task<base::HttpResponse> send(base::HttpRequest request) override {
        requests.push_back(std::move(request));
        const auto answer = nextAnswer(requests.back().url);
        Open running(*this);
        if (answer.gate) co_await *answer.gate;
        running.isAnswered = true;
        if (answer.failure) throw base::HttpError(*answer.failure, "The server does not answer.");
        co_return answer.response;
    }

private:
    /// Counts a request while it runs.
    struct Open {
        FakeHttpClient& client;
        bool isAnswered = false;

        explicit Open(FakeHttpClient& counted) : client(counted) { ++client.open; }
        Open(const Open&) = delete;
        Open& operator=(const Open&) = delete;
        ~Open() {
            --client.open;
            if (!isAnswered) ++client.abandoned;
        }
    };
    std::deque<std::pair<std::string, Answer>> scripted_;
    std::map<std::string, Answer> usual_;

    static bool has(std::string_view url, std::string_view part) { return url.find(part) != url.npos; }

    Answer nextAnswer(const std::string& url) {
        const auto fits = [&url](const auto& entry) { return has(url, entry.first); };
        if (const auto found = std::ranges::find_if(scripted_, fits); found != scripted_.end()) {
            auto answer = std::move(found->second);
            scripted_.erase(found);
            return answer;
        }
        const std::pair<const std::string, Answer>* usual = nullptr;
        for (const auto& entry : usual_) {
            if (fits(entry) && (!usual || entry.first.size() > usual->first.size())) usual = &entry;
        }
        if (usual) return usual->second;
        if (isSilent) return silence();
        if (!status) return failure(base::HttpErrorCode::refused);
        Answer answer;
        answer.response.status = *status;
        return answer;
    }
};

}  // namespace tessivox::testing
