#include "trace/trace.h"

#include <cxxabi.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <typeinfo>

#include "unitydrv/version.h"

namespace trace {

bool on = false;
bool wire = false;
unsigned current_device = 0;
const char* subject = "";

namespace {

enum class target_kind { none, standard_error, system_log, file };

struct sink_state {
  target_kind kind = target_kind::none;
  std::FILE* file = nullptr;
};
sink_state sink;

// A line is formatted on the stack: tracing allocates nothing of its own.
constexpr std::size_t line_room = 2048;
// Hex dumps show at most this many bytes: a read reply is never longer.
constexpr std::size_t shown_bytes = 2048;

void close_sink() {
  on = false;
  wire = false;
  current_device = 0;
  subject = "";
  if (sink.file != nullptr) std::fclose(sink.file);
  sink = sink_state{};
}

// "2026-11-25T12:34:56.789Z " (UTC: no time zone file to read), or nothing for syslog,
// which stamps its own.
std::size_t put_prefix(char* out, std::size_t room) {
  std::size_t n = 0;
  if (sink.kind != target_kind::system_log) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    ::gmtime_r(&now.tv_sec, &parts);
    n = std::strftime(out, room, "%Y-%m-%dT%H:%M:%S", &parts);
    n += static_cast<std::size_t>(
        std::snprintf(out + n, room - n, ".%03ldZ ", static_cast<long>(now.tv_nsec / 1000000)));
  }
  int head = current_device != 0
                 ? std::snprintf(out + n, room - n, "unitydrv dev=%u ", current_device)
                 : std::snprintf(out + n, room - n, "unitydrv ");
  return n + static_cast<std::size_t>(head);
}

// Clamps what snprintf says it would have written to what fits.
std::size_t advanced(std::size_t at, int written, std::size_t room) {
  if (written < 0) return at;
  return at + static_cast<std::size_t>(written) < room ? at + static_cast<std::size_t>(written)
                                                       : room - 1;
}

void write_line(char* line, std::size_t length) {
  if (sink.kind == target_kind::system_log) {
    ::syslog(LOG_USER | LOG_INFO, "%s", line);
    return;
  }
  std::FILE* out = sink.kind == target_kind::file ? sink.file : stderr;
  line[length] = '\n';
  std::fwrite(line, 1, length + 1, out);
  std::fflush(out);
}

const char* type_name(const std::type_info& type) {
  static char name[160];
  int status = 0;
  char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  std::snprintf(name, sizeof name, "%s", status == 0 && demangled ? demangled : type.name());
  std::free(demangled);
  return name;
}

}  // namespace

bool configure(const char* target, bool with_wire) {
  close_sink();
  if (target == nullptr || *target == '\0') return false;
  if (std::strcmp(target, "stderr") == 0) {
    sink.kind = target_kind::standard_error;
  } else if (std::strcmp(target, "syslog") == 0) {
    sink.kind = target_kind::system_log;
  } else {
    // "e": the host's child processes do not inherit the trace file.
    sink.file = std::fopen(target, "ae");
    if (sink.file == nullptr) {
      std::fprintf(stderr, "unitydrv: cannot open the trace file %s: %s; tracing stays off\n",
                   target, std::strerror(errno));
      return false;
    }
    sink.kind = target_kind::file;
  }
  on = true;
  wire = with_wire;
  emit("loaded", "version=%s pid=%ld wire=%d", UNITYDRV_VERSION, static_cast<long>(::getpid()),
       wire ? 1 : 0);
  return true;
}

bool from_environment() {
  const char* wire_flag = std::getenv("UNITYDRV_TRACE_WIRE");
  return configure(std::getenv("UNITYDRV_TRACE"),
                   wire_flag != nullptr && std::strcmp(wire_flag, "1") == 0);
}

void emit(const char* event, const char* format, ...) {
  if (!on) return;
  const int saved_errno = errno;
  char line[line_room + 1];
  std::size_t n = put_prefix(line, line_room);
  n = advanced(n, std::snprintf(line + n, line_room - n, "%s ", event), line_room);
  va_list args;
  va_start(args, format);
  n = advanced(n, std::vsnprintf(line + n, line_room - n, format, args), line_room);
  va_end(args);
  write_line(line, n);
  errno = saved_errno;
}

void emit_bytes(const char* event, const unsigned char* bytes, std::size_t size) {
  if (!on) return;
  const int saved_errno = errno;
  constexpr std::size_t room = 2 * shown_bytes + 128;
  char line[room + 1];
  std::size_t n = put_prefix(line, room);
  n = advanced(n, std::snprintf(line + n, room - n, "%s bytes=%zu ", event, size), room);
  static const char digits[] = "0123456789abcdef";
  const std::size_t shown = size < shown_bytes ? size : shown_bytes;
  for (std::size_t i = 0; i < shown; ++i) {
    line[n++] = digits[bytes[i] >> 4];
    line[n++] = digits[bytes[i] & 0x0F];
  }
  if (shown < size) n = advanced(n, std::snprintf(line + n, room - n, " (cut)"), room);
  write_line(line, n);
  errno = saved_errno;
}

void exception_leaving(const char* entry_point) {
  if (!on) return;
  try {
    throw;
  } catch (const std::exception& e) {
    emit("exception", "entry=%s type=%s what=\"%s\" (rethrown to the host)", entry_point,
         type_name(typeid(e)), e.what());
  } catch (...) {
    emit("exception", "entry=%s type=unknown (rethrown to the host)", entry_point);
  }
}

escaped::escaped(std::string_view text, bool quoted) {
  static const char digits[] = "0123456789abcdef";
  constexpr std::size_t room = sizeof text_ - 4;  // an escape and the zero always fit
  std::size_t n = 0;
  for (const char byte : text) {
    const auto c = static_cast<unsigned char>(byte);
    const bool plain = (c > ' ' || (quoted && c == ' ')) && c < 0x7F && c != '"' && c != '\\';
    if (n + (plain ? 1 : 4) > room - 3) {
      std::memcpy(text_ + n, "...", 3);
      n += 3;
      break;
    }
    if (plain) {
      text_[n++] = static_cast<char>(c);
    } else {
      text_[n++] = '\\';
      text_[n++] = 'x';
      text_[n++] = digits[c >> 4];
      text_[n++] = digits[c & 0x0F];
    }
  }
  text_[n] = '\0';
}

const char* os_reason(int error) {
  static char text[128];
  // The GNU strerror_r returns either its buffer or a text of its own.
  return ::strerror_r(error, text, sizeof text);
}

}  // namespace trace
