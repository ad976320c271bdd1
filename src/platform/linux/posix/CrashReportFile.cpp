#include "platform/linux/posix/CrashReportFile.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "base/IsoTime.h"
#include "platform/linux/posix/Retry.h"
#include "platform/linux/posix/SignalSafeText.h"

namespace tessivox::posix {
namespace {

using Line = SignalSafeText<1024>;

std::uintptr_t number(const void* address) noexcept { return reinterpret_cast<std::uintptr_t>(address); }

base::WallTime timeOfDay() noexcept {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return base::WallTime(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

/// A name that sorts by time: "2026-11-23T00-16-04.123Z-4711.txt".
int createIn(int folder) noexcept {
    SignalSafeText<64> name;
    const base::IsoTime time(timeOfDay());
    for (const char& letter : time.view()) name << (letter == ':' ? "-" : std::string_view(&letter, 1));
    name << "-" << ::getpid() << ".txt";
    return ::openat(folder, name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0600);
}

}  // namespace

std::array<char, 16> nameOfThisThread() noexcept {
    std::array<char, 16> name{};
    ::prctl(PR_GET_NAME, name.data());
    return name;
}

CrashReportFile::CrashReportFile(const ReportSource& source, const Incident& incident) noexcept
    : source_(source), file_(source.folder ? createIn(source.folder.get()) : -1) {
    write("Tessivox report\n");
    writeIncident(incident);
    writeProgram();
    writeBreadcrumbs();
    writeModules();
}

CrashReportFile::~CrashReportFile() { write("end:\n"); }

void CrashReportFile::writeIncident(const Incident& incident) noexcept {
    Line text;
    text << "type: " << incident.type << "\ntime: " << base::IsoTime(timeOfDay()).view() << "\npid: " << ::getpid();
    text << "\nthread: " << incident.thread << " "
         << std::string_view(incident.threadName.data(), ::strnlen(incident.threadName.data(), 16)) << "\n";
    if (incident.signal != 0) {
        text << "signal: " << incident.signal << "\ncode: " << incident.code << "\naddress: ";
        text.hex(number(incident.address)) << "\ninstruction: ";
        text.hex(number(incident.instruction)) << "\n";
    }
    write(text.view());
}

void CrashReportFile::writeProgram() noexcept {
    Line text;
    text << "build_id: " << source_.program.buildID << "\nload_address: ";
    text.hex(source_.program.loadAddress) << "\nprogram: " << source_.program.path;
    write(text.view());
    write("\n");
    if (const auto* scope = source_.scope.load(std::memory_order_acquire)) write(*scope);
}

void CrashReportFile::writeBreadcrumbs() noexcept {
    source_.breadcrumbs.forEach([this](const telemetry::BreadcrumbRing::Record& record) {
        Line text;
        text << "breadcrumb: " << base::IsoTime(record.time).view() << " " << record.line() << "\n";
        write(text.view());
    });
}

/// The executable mappings of the process, by which addresses in libraries can be understood; see proc(5).
void CrashReportFile::writeModules() noexcept {
    const Descriptor maps(::open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
    std::array<char, 4096> buffer;
    std::size_t held = 0;
    while (maps) {
        const auto got = retry([&] { return ::read(maps.get(), buffer.data() + held, buffer.size() - held); });
        if (got <= 0) return;
        held += static_cast<std::size_t>(got);
        std::string_view text(buffer.data(), held);
        for (auto end = text.find('\n'); end != text.npos; end = text.find('\n')) {
            writeModule(text.substr(0, end));
            text.remove_prefix(end + 1);
        }
        if (text.size() == buffer.size()) text = {};  // a path of that length is nobody's library
        held = text.size();
        std::memmove(buffer.data(), text.data(), held);
    }
}

void CrashReportFile::writeModule(std::string_view mapping) noexcept {
    const auto permissions = mapping.substr(std::min(mapping.find(' '), mapping.size())).substr(0, 5);
    if (permissions.find('x') == permissions.npos) return;
    write("module: ");
    write(mapping);
    write("\n");
}

void CrashReportFile::writeFrames(std::span<void* const> addresses) noexcept {
    for (const void* address : addresses) {
        Line text;
        text << "frame: ";
        text.hex(number(address));
        if (source_.program.contains(number(address))) {
            text << " own +";
            text.hex(number(address) - source_.program.loadAddress);
        }
        text << "\n";
        write(text.view());
    }
}

void CrashReportFile::write(std::string_view text) noexcept {
    while (file_ && !text.empty()) {
        const auto put = retry([&] { return ::write(file_.get(), text.data(), text.size()); });
        if (put <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(put));
    }
}

}  // namespace tessivox::posix
