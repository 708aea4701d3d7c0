#include "platform/system/terminal.h"

#include <atomic>
#include <memory>
#include <thread>

#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include "platform/text/code_page.h"
#include "platform/text/text_lines.h"

namespace platform {

bool isTerminal(std::FILE* stream) {
  // Not _isatty: that takes the NUL device for a terminal, too. A console that does not understand
  // escape sequences is none either, for programs that draw.
  DWORD mode = 0;
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  return GetConsoleMode(handle, &mode) != 0 &&
         SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

int terminalWidth(std::FILE* stream) {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  if (GetConsoleScreenBufferInfo(handle, &info) == 0) return 0;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

bool readHiddenLine(std::string& line) {
  line.clear();
  DWORD before = 0;
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  if (GetConsoleMode(input, &before) == 0) return false;
  SetConsoleMode(input, before & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
  const UINT codePage = GetConsoleCP();
  SetConsoleCP(GetACP());  // that of all texts
  int c = 0;
  while ((c = std::getchar()) != EOF && c != '\n') line += static_cast<char>(c);
  SetConsoleCP(codePage);
  SetConsoleMode(input, before);
  return c != EOF;
}

namespace {

std::atomic<UINT> consoleCodePageBefore = 0;  // 0: there is no console

// Converts what is written to a stream, line by line, in a thread of its own.
class Converter {
 public:
  Converter(std::FILE* stream, UINT codePage) : stream_(stream), codePage_(codePage) {
    constexpr unsigned kPipeBytes = 65536;
    int ends[2] = {-1, -1};
    std::fflush(stream);
    target_ = _dup(_fileno(stream));
    if (target_ == -1 || _pipe(ends, kPipeBytes, _O_BINARY | _O_NOINHERIT) != 0) return;
    source_ = ends[0];
    _dup2(ends[1], _fileno(stream));
    _setmode(_fileno(stream), _O_TEXT);
    _setmode(target_, _O_BINARY);
    _close(ends[1]);
    thread_ = std::thread([this] { convert(); });
  }
  ~Converter() { finish(); }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  // The stream leads to where it did before. False when not everything could be written there.
  bool finish() {
    if (target_ == -1) return written_;
    const bool flushed = std::fflush(stream_) == 0;
    _dup2(target_, _fileno(stream_));  // closes the pipe's last end to be written to
    _setmode(_fileno(stream_), _O_TEXT);
    if (thread_.joinable()) thread_.join();
    _close(target_);
    target_ = -1;
    written_ = written_ && flushed;
    return written_;
  }

 private:
  void convert() {
    char piece[4096];
    std::string text;
    for (int size = 0; (size = _read(source_, piece, sizeof piece)) > 0;) {
      text.append(piece, static_cast<std::size_t>(size));
      const std::size_t lines = text.rfind('\n') + 1;  // in every code page a line end is one
      write(text.substr(0, lines));
      text.erase(0, lines);
    }
    write(text);
    _close(source_);
  }

  void write(const std::string& text) {
    std::string converted;
    if (!utf8ToCodePage(codePage_, ansiToUtf8(text), converted)) converted = text;
    for (std::size_t at = 0; written_ && at < converted.size();) {
      const int size =
          _write(target_, converted.data() + at, static_cast<unsigned>(converted.size() - at));
      written_ = size > 0;
      at += static_cast<std::size_t>(size);
    }
  }

  std::FILE* stream_;
  UINT codePage_;
  int target_ = -1;  // where the stream led; -1: it does again
  int source_ = -1;  // the pipe's end to be read from
  std::thread thread_;
  bool written_ = true;  // the thread's while it runs
};

std::unique_ptr<Converter> outputConverter;
std::unique_ptr<Converter> errorConverter;

std::unique_ptr<Converter> converterOf(std::FILE* stream) {
  DWORD mode = 0;
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
  const UINT codePage = consoleCodePageBefore;
  const bool needed = codePage != 0 && codePage != GetACP() && handle != nullptr &&
                      handle != INVALID_HANDLE_VALUE && GetConsoleMode(handle, &mode) == 0;
  return needed ? std::make_unique<Converter>(stream, codePage) : nullptr;
}

void restoreCodePage() {
  if (const UINT before = consoleCodePageBefore.exchange(0); before != 0) {
    SetConsoleOutputCP(before);
  }
}

// Ctrl-C ends the program without destructors, in a thread of its own.
BOOL WINAPI restoreAtEnd(DWORD) {
  restoreCodePage();
  return FALSE;  // the next handler, which ends the process
}

}  // namespace

// A console's own code page is another one, that of DOS.
AnsiTerminal::AnsiTerminal() {
  consoleCodePageBefore = GetConsoleOutputCP();
  SetConsoleCtrlHandler(restoreAtEnd, TRUE);
  SetConsoleOutputCP(GetACP());
  outputConverter = converterOf(stdout);
  errorConverter = converterOf(stderr);
}

bool AnsiTerminal::finish() {
  const bool flushed = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  return (outputConverter == nullptr || outputConverter->finish()) && flushed;
}

AnsiTerminal::~AnsiTerminal() {
  outputConverter.reset();
  errorConverter.reset();
  restoreCodePage();
  SetConsoleCtrlHandler(restoreAtEnd, FALSE);
}

void writeBytesAsTheyAre(std::FILE* stream) {
  std::fflush(stream);
  if (stream == stdout) outputConverter.reset();
  _setmode(_fileno(stream), _O_BINARY);
}

}  // namespace platform
