#include "backend/OptionTable.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>
#include <vector>

namespace tessivox::backend {
namespace {

/// Stores a number within bounds.
template <typename Number>
bool store(Number& place, std::string_view text, std::type_identity_t<Number> least,
           std::type_identity_t<Number> most) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !(value >= least && value <= most)) return false;
    place = value;
    return true;
}

bool storeText(std::string& place, const std::string& text) {
    place = text;
    return !text.empty();
}

bool storePath(std::filesystem::path& place, const std::string& text) {
    place = text;
    return !text.empty();
}

bool storeMegabytes(std::uint64_t& place, const std::string& text) {
    std::uint64_t megabytes = 0;
    if (!store(megabytes, text, 1, 1 << 20)) return false;
    place = megabytes << 20;
    return true;
}

bool storeSeconds(std::chrono::seconds& place, const std::string& text) {
    return [&](std::int64_t seconds) {
        const bool isStored = store(seconds, text, 0, std::int64_t{10} * 365 * 24 * 3600);
        place = std::chrono::seconds(seconds);
        return isStored;
    }(0);
}

bool storeListen(ListenOptions& place, const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) return false;
    place.address = text.substr(0, colon);
    if (place.address.starts_with('[') && place.address.ends_with(']')) {
        place.address = place.address.substr(1, place.address.size() - 2);
    }
    return store(place.port, std::string_view(text).substr(colon + 1), 0, 65535);
}

bool storeEngine(std::string& place, const std::string& text) {
    place = text;
    return text == "pocketsphinx" || text == "command" || text == "openai" || text == "fake";
}

/// Of ISO 639.
bool storeLanguage(std::string& place, const std::string& text) {
    place = text;
    return (text.size() == 2 || text.size() == 3) &&
           std::all_of(text.begin(), text.end(), [](char c) { return 'a' <= c && c <= 'z'; });
}

bool storeFormat(std::string& place, const std::string& text) {
    place = text;
    return text == "verbose_json" || text == "json" || text == "diarized_json";
}

bool storeFaults(Faults::Rules& place, const std::string& text) {
    const auto rules = Faults::parse(text);
    if (rules) place = *rules;
    return rules.has_value();
}

using Server = ServerOptions;
using Text = const std::string;

std::vector<OptionEntry> makeTable() {
    return {
        {"inherited", "",
         "Serve on the socket that the starter made: descriptors 3 (socket), 4 (address file), 5 (pipe).", "",
         [](Server& o, Text&) { return o.isInherited = true; }},
        {"listen", "ADDRESS:PORT",
         "Where to listen; 127.0.0.1:0 (any free port) if not given. Another machine's address needs --host, "
         "--tls-cert, --tls-key and --secret-file.",
         "an address and a port, such as 127.0.0.1:0", [](Server& o, Text& v) { return storeListen(o.listen, v); }},
        {"host", "NAME", "The name that clients use for this machine.", "a host name",
         [](Server& o, Text& v) { return storeText(o.listen.host, v); }},
        {"tls-cert", "FILE", "Serve https with this certificate chain (PEM).", "a file name",
         [](Server& o, Text& v) { return storePath(o.listen.certificate, v); }},
        {"tls-key", "FILE", "The certificate's private key (PEM).", "a file name",
         [](Server& o, Text& v) { return storePath(o.listen.key, v); }},
        {"secret-file", "FILE",
         "A file that only you can read, with the secret of the server's address: at least 32 letters and digits. "
         "Without it each start makes a new one.",
         "a file name", [](Server& o, Text& v) { return storePath(o.listen.secretFile, v); }},
        {"state", "FOLDER", "Where jobs and results are kept; $XDG_STATE_HOME/Tessivox/backend if not given.",
         "a folder", [](Server& o, Text& v) { return storePath(o.state, v); }},
        {"engine", "NAME",
         "Who transcribes: pocketsphinx (the default), command (see --command) or openai (see --openai-url).",
         "pocketsphinx, command or openai", [](Server& o, Text& v) { return storeEngine(o.engine.engine, v); }},
        {"openai-url", "URL",
         "Base address of an OpenAI-compatible transcription service, such as http://127.0.0.1:8000/v1.", "a URL",
         [](Server& o, Text& v) { return storeText(o.engine.openaiUrl, v); }},
        {"openai-model", "NAME", "The model to ask it for.", "a model's name",
         [](Server& o, Text& v) { return storeText(o.engine.openaiModel, v); }},
        {"openai-language", "CODE", "The language that is spoken, such as en; the service finds out if not given.",
         "two or three letters, such as en",
         [](Server& o, Text& v) { return storeLanguage(o.engine.openaiLanguage, v); }},
        {"openai-format", "NAME",
         "The form of its answers: verbose_json (the default), json for models that know no times, or diarized_json "
         "for those that tell speakers apart.",
         "verbose_json, json or diarized_json",
         [](Server& o, Text& v) { return storeFormat(o.engine.openaiFormat, v); }},
        {"chat-url", "URL", "Base address of an OpenAI-compatible chat service, for summaries, titles and gists.",
         "a URL", [](Server& o, Text& v) { return storeText(o.engine.chatUrl, v); }},
        {"chat-model", "NAME", "The model to ask it for.", "a model's name",
         [](Server& o, Text& v) { return storeText(o.engine.chatModel, v); }},
        {"max-upload", "MB", "The largest upload; 1024 if not given.", "a number of megabytes",
         [](Server& o, Text& v) { return storeMegabytes(o.limits.uploadBytes, v); }},
        {"max-queue", "MB", "What all waiting uploads may take; 8192 if not given.", "a number of megabytes",
         [](Server& o, Text& v) { return storeMegabytes(o.limits.queuedBytes, v); }},
        {"max-jobs", "NUMBER", "How many jobs may wait; 100 if not given.", "a number from 1 to 10000",
         [](Server& o, Text& v) { return store(o.limits.queuedJobs, v, 1, 10000); }},
        {"max-hours", "HOURS", "The longest sound; 12 if not given.", "a number of hours",
         [](Server& o, Text& v) { return store(o.limits.soundHours, v, 0.001, 1000); }},
        {"time-factor", "NUMBER", "How long a job may take, as a multiple of the sound's length; 6 if not given.",
         "a number from 0.01 to 1000", [](Server& o, Text& v) { return store(o.engine.timeFactor, v, 0.01, 1000); }},
        {"verbose", "", "Write a log to standard error. It holds no text of any transcript.", "",
         [](Server& o, Text&) { return o.isVerbose = true; }},
        {"testing", "", "Allow the options below.", "", [](Server& o, Text&) { return o.isTesting = true; }},
        {"fault", "SPEC",
         "Spoil answers: ENDPOINT:KIND[*COUNT], with commas between several, the first that fits counts. ENDPOINT: "
         "usage, me, submit, status, summarize, feedback, message, register, consent. KIND: a status, slow=SECONDS, "
         "cut, malformed, none.",
         "faults such as submit:503*2,status:slow=5", [](Server& o, Text& v) { return storeFaults(o.faults, v); }},
        {"fake-text", "TEXT", "What the engine \"fake\" hears.", "a text",
         [](Server& o, Text& v) {
             o.engine.fake.text = v;
             return true;
         }},
        {"fake-seconds", "SECONDS", "How long it works.", "a number of seconds",
         [](Server& o, Text& v) { return store(o.engine.fake.seconds, v, 0, 1e6); }},
        {"fake-decode", "SECONDS", "How long it decodes before.", "a number of seconds",
         [](Server& o, Text& v) { return store(o.engine.fake.decodeSeconds, v, 0, 1e6); }},
        {"fake-length", "SECONDS", "How long it says that the sound is.", "a number of seconds",
         [](Server& o, Text& v) { return store(o.engine.fake.length, v, 0, 1e6); }},
        {"fake-crashes", "NUMBER", "In how many first attempts at a job it crashes.", "a number",
         [](Server& o, Text& v) { return store(o.engine.fake.crashes, v, 0, 1000); }},
        {"fake-hangs", "NUMBER", "In how many first attempts at a job it hangs.", "a number",
         [](Server& o, Text& v) { return store(o.engine.fake.hangs, v, 0, 1000); }},
        {"least-time", "SECONDS", "How long any job may take, beside what --time-factor allows.", "a number of seconds",
         [](Server& o, Text& v) { return store(o.limits.leastSeconds, v, 0, 1e6); }},
        {"clock-offset", "SECONDS", "How far ahead of the machine's clock the server believes to be.",
         "a number of seconds", [](Server& o, Text& v) { return storeSeconds(o.clockOffset, v); }},
        {"idle-time", "SECONDS", "How long a server whose starter has gone waits for requests.", "a number of seconds",
         [](Server& o, Text& v) { return storeSeconds(o.idleTime, v); }},
    };
}

constexpr std::string_view kIntroduction =
    R"(Usage: tessivox-backend [OPTION]... [--command PROGRAM [ARGUMENT]...]

Transcribes and summarises the recordings of Tessivox on this machine. Tessivox starts it by itself; started by hand it
prints its address, which goes into Tessivox's preference "serverURL". The address holds a secret: whoever knows it can
use the server.

The built-in engine, pocketsphinx, knows American English only. Clearly spoken words in good sound come out readable;
of ordinary conversation it gets a third to a half of the words wrong. For transcripts to rely on, give it a better
engine: with whisper.cpp, say,
  tessivox-backend --engine command --command whisper-cli -m MODEL.bin -osrt -of {out} -f {wav}

Options:
)";

constexpr std::string_view kAfterOptions =
    R"(  --command PROGRAM [ARGUMENT]...
      For --engine command: the program and all its arguments; comes last. {wav} stands for a WAV file (16 kHz,
      mono), {out} for a name to which the program may add .txt, .srt, .vtt or .json; without {out}, what it
      prints is taken.
  --help
      This text.
  --version
      The version.

The same names, without the dashes, may stand in $XDG_CONFIG_HOME/Tessivox/backend.json, as in
  {"engine": "command", "command": ["whisper-cli", "-m", "MODEL.bin", "-osrt", "-of", "{out}", "-f", "{wav}"]}
Where a service needs a key, it comes from the environment variable TESSIVOX_OPENAI_KEY or TESSIVOX_CHAT_KEY.

Exit status: 0 it ended as told; 1 it could not serve; 2 the options make no sense.
)";

/// In lines of at most 100 characters, each begun with six spaces.
std::string folded(std::string_view paragraph) {
    std::string text;
    while (!paragraph.empty()) {
        auto length = paragraph.size();
        if (length > 100) length = paragraph.rfind(' ', 100);
        text.append("      ").append(paragraph.substr(0, length)).append("\n");
        paragraph.remove_prefix(std::min(paragraph.size(), length + 1));
    }
    return text;
}

}  // namespace

std::span<const OptionEntry> optionTable() {
    static const std::vector<OptionEntry> table = makeTable();
    return table;
}

std::string helpText() {
    std::string text(kIntroduction);
    for (const auto& entry : optionTable()) {
        text.append("  --").append(entry.name);
        if (!entry.value.empty()) text.append(" ").append(entry.value);
        text.append("\n").append(folded(entry.help));
    }
    return text.append(kAfterOptions);
}

}  // namespace tessivox::backend
