#include "CommandSupport.h"
#include "Commands.h"

#include "t2s_runtime.h"

#include <cerrno>
#include <cmath>
#include <climits>
#include <cstdlib>
#include <cstdio>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <fstream>
#include <iostream>

#include <sys/stat.h>
#include <unistd.h>

Arguments::Arguments(int argc, char** argv) : command(argc > 0 ? argv[0] : "") {
  Command const* c = FindCommand(command.c_str());
  auto find = [c](std::string const& flag) -> Option const* {
    if (c)
      for (Option const& o : c->options)
        if (flag == o.flag) return &o;
    return nullptr;
  };
  auto refuse = [&](std::string const& what) {
    std::fprintf(stderr, "t2sfst %s: %s (see 't2sfst help %s')\n", command.c_str(), what.c_str(),
                 command.c_str());
    ok = false;
  };
  bool options_ended = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (options_ended || arg.size() < 2 || arg[0] != '-') {
      positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      options_ended = true;
      continue;
    }
    // "--flag=value" for options with a value; a short option takes its value apart.
    size_t const equals = arg.compare(0, 2, "--") == 0 ? arg.find('=') : std::string::npos;
    std::string const flag = arg.substr(0, equals);
    Option const* option = find(flag);
    if (!option) {
      refuse("unknown option " + flag);
    } else if (!option->value) {
      if (equals != std::string::npos)
        refuse(flag + " takes no value");
      else
        options.push_back({flag, ""});
    } else if (equals != std::string::npos) {
      options.push_back({flag, arg.substr(equals + 1)});
    } else if (i + 1 < argc) {
      options.push_back({flag, argv[++i]});
    } else {
      refuse(flag + " needs a value (" + option->value + ")");
    }
  }
}

bool ParseNumber(std::string const& text, double low, double high, bool integral, double& value) {
  char* end = nullptr;
  errno = 0;
  double v = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != 0 || errno == ERANGE || std::isnan(v)) return false;
  if (integral && (std::isinf(v) || v != std::floor(v))) return false;
  if (v < low || v > high) return false;
  value = v;
  return true;
}

bool Arguments::number(std::string const& option, double fallback, double low, double high,
                       bool integral, double& value) const {
  if (!has(option)) {
    value = fallback;
    return true;
  }
  std::string const text = this->value(option);
  if (ParseNumber(text, low, high, integral, value)) return true;
  char bounds[96] = "";
  if (high >= 1e30)
    std::snprintf(bounds, sizeof bounds, " from %g", low);
  else
    std::snprintf(bounds, sizeof bounds, " from %.10g to %.10g", low, high);
  std::fprintf(stderr, "t2sfst %s: %s takes %s%s, not '%s' (see 't2sfst help %s')\n",
               command.c_str(), option.c_str(), integral ? "a whole number" : "a number",
               low <= -1e30 ? "" : bounds, text.c_str(), command.c_str());
  return false;
}

bool Arguments::number(std::string const& option, int fallback, int low, int high,
                       int& value) const {
  double v;
  if (!number(option, double(fallback), double(low), double(high), true, v)) return false;
  value = int(v);
  return true;
}

bool Arguments::has(std::string const& option) const {
  for (auto const& o : options)
    if (o.first == option) return true;
  return false;
}

std::string Arguments::value(std::string const& option, std::string const& fallback) const {
  for (auto const& o : options)
    if (o.first == option) return o.second;
  return fallback;
}

std::string& LastInput() {
  static std::string last;
  return last;
}

void ReportStop(char const* command, FSTStop const& stop) {
  std::string where = stop.file.empty() ? LastInput() : stop.file;
  // The binary readers' messages name their file already.
  if (stop.line == 0 && !where.empty() && stop.message.find(where) != std::string::npos) where.clear();
  if (!where.empty() && stop.line > 0) where += ", line " + std::to_string(stop.line);
  if (!where.empty()) where += ": ";
  std::string message = stop.message;
  // Messages of the text reader start with a placeholder for the file: the place says it.
  if (message.compare(0, 6, "file: ") == 0) message.erase(0, 6);
  if (message.compare(0, 15, "FSTMmap: label ") == 0)
    message += " (the file needs the label table it was written with: FST_LABELS_FILE=TABLE,"
               " see convert --to mmap --labels)";
  std::fprintf(stderr, "t2sfst %s: %s%s\n", command, where.c_str(), message.c_str());
}

std::string WrongKindOfFile(std::string const& path, FileKind expected) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return std::string(": ") + std::strerror(errno);
  if (S_ISDIR(info.st_mode)) return ": it is a directory";
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::string(": ") + std::strerror(errno);
  char head[4096];
  in.read(head, sizeof head);
  std::string const start(head, size_t(in.gcount()));
  auto starts = [&](char const* prefix) { return start.compare(0, std::strlen(prefix), prefix) == 0; };
  bool const binary = start.find('\0') != std::string::npos;
  bool const packed = starts("T2SNGRAM") || starts("T2SNGBIN"), grammar = starts("#JSGF"), stored = starts("#FST");
  bool const text_machine =
      !binary && start.size() > 1 && std::strchr("ITFP", start[0]) && start[1] == ' ';
  auto is_model = [&] {
    t2s_model* m = binary && !packed && !stored ? t2s_model_load(path.c_str(), nullptr, 0) : nullptr;
    if (m) t2s_model_free(m);
    return m != nullptr;
  };
  std::string const machine_kind =
      stored ? "a machine (" + start.substr(1, start.find_first_of(" \t\r\n") - 1) + " format)"
             : "a text machine";
  switch (expected) {
    case FileKind::machine:
      if (grammar) return " is a JSGF grammar, not a machine: compile it with t2sfst compile-grammar";
      if (is_model())
        return " is a T2S model: print, draw and info read it as a machine, other commands do not";
      if (binary && !stored) return " holds binary data without a header, not a machine";
      return "";
    case FileKind::model:
      if (packed) return " is an n-gram model (written by ngram-pack or ngram-compile), not a T2S model";
      if (grammar) return " is a JSGF grammar, not a model: build one with t2sfst make-model";
      if (start.empty()) return " is empty, not a model: build one with t2sfst make-model";
      if (stored || text_machine)
        return " is " + machine_kind + ", not a model: build one with t2sfst make-model";
      return "";
    case FileKind::grammar:
      if (packed) return " is an n-gram model (written by ngram-pack or ngram-compile), not a grammar";
      if (stored || text_machine) return " is " + machine_kind + ", not a grammar";
      if (is_model()) return " is a T2S model, not a grammar";
      if (binary) return " holds binary data, not a grammar";
      return "";
  }
  return "";
}

FSTGeneric LoadInput(char const* command, std::string const& path) {
  LastInput() = path.empty() || path == "-" ? "standard input" : path;
  if (!path.empty() && path != "-") {
    struct stat info;
    char const* problem = nullptr;
    int error = 0;
    if (stat(path.c_str(), &info) != 0) problem = "", error = errno;
    else if (S_ISDIR(info.st_mode)) problem = "it is a directory";
    else if (!std::ifstream(path)) problem = "", error = errno;
    if (problem) {
      // Not a readable file: perhaps an expression over files.
      FSTGeneric m;
      std::string messages;
      if (!*problem && FSTExpression(path, m, messages)) return m;
      std::fprintf(stderr, "t2sfst %s: cannot read %s: %s\n", command, path.c_str(),
                   *problem ? problem : std::strerror(error));
      // A plain name fails as an expression for the same reason: say it once.
      if (!*problem && messages != "can't read file " + path + "\n")
        std::fprintf(stderr, "  (nor parse it as an expression: %s)\n",
                     messages.substr(0, messages.find('\n')).c_str());
      return FSTGeneric();
    }
  }
  if (!path.empty() && path != "-") {
    // A packed or compiled n-gram model reads as the model it holds.
    char head[8] = {};
    std::ifstream file(path, std::ios::binary);
    file.read(head, sizeof head);
    if (FSTNgramIsPacked(head, size_t(file.gcount()))) {
      file.seekg(0);
      return FSTNgramLoadPacked(file, path);
    }
    if (FSTNgramIsBinary(head, size_t(file.gcount()))) return FSTNgramLoadBinary(path);
    std::string wrong = WrongKindOfFile(path, FileKind::machine);
    if (!wrong.empty()) {
      std::fprintf(stderr, "t2sfst %s: %s%s\n", command, path.c_str(), wrong.c_str());
      return FSTGeneric();
    }
  }
  return FSTLoad(path);
}

namespace {

std::string folder_of(std::string const& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// The model at path as a machine, or null when the file is not a model.
FSTGeneric ModelMachine(std::string const& path) {
  {
    std::ifstream in(path, std::ios::binary);
    if (in.peek() == '#') return FSTGeneric();  // every machine format starts with its header
  }
  t2s_model* model = t2s_model_load(path.c_str(), nullptr, 0);
  if (!model) return FSTGeneric();
  FSTGeneric m = FSTBasic(FSTMinPlus);
  m->name = "T2SModel";
  if (t2s_model_num_states(model)) m->add_states(int(t2s_model_num_states(model)));
  if (t2s_model_start(model) >= 0) m->set_initial(t2s_model_start(model));
  for (uint32_t p = 0; p < t2s_model_num_states(model); ++p) {
    uint32_t first, end;
    int final;
    t2s_model_state(model, p, &first, &end, &final);
    if (final) m->set_final(int(p), FSTMinPlus->one);
    for (uint32_t a = first; a < end; ++a) {
      uint8_t input;
      uint32_t output;
      int32_t next;
      float weight;
      t2s_model_arc(model, a, &input, &output, &next, &weight);
      int in = input ? FSTstring_map[std::string(1, char(input))] : 0;
      int out = output ? FSTstring_map[t2s_model_string(model, output)] : 0;
      m->add_arc(int(p), next, in, out, weight);
    }
  }
  t2s_model_free(model);
  return m;
}

}  // namespace

FSTGeneric LoadInputOrModel(char const* command, std::string const& path) {
  if (!path.empty() && path != "-") {
    struct stat info;
    if (stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode))
      if (FSTGeneric model = ModelMachine(path)) return model;
  }
  return LoadInput(command, path);
}

bool CanWrite(char const* command, std::string const& path) {
  if (path.empty() || path == "-") return true;
  struct stat info;
  char const* problem = nullptr;
  if (stat(path.c_str(), &info) == 0) {
    if (S_ISDIR(info.st_mode)) problem = "it is a directory";
    else if (access(path.c_str(), W_OK) != 0) problem = std::strerror(errno);
  }
  if (!problem && access(folder_of(path).c_str(), W_OK | X_OK) != 0) problem = std::strerror(errno);
  if (!problem) return true;
  std::fprintf(stderr, "t2sfst %s: cannot write %s: %s\n", command, path.c_str(), problem);
  return false;
}

std::vector<std::string> Arguments::values(std::string const& option) const {
  std::vector<std::string> found;
  for (auto const& o : options)
    if (o.first == option) found.push_back(o.second);
  return found;
}

namespace {

// Where a link leads, also when its target does not exist yet (then relative to its folder).
std::string link_target(std::string const& path) {
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved)) return resolved;
  char target[PATH_MAX];
  ssize_t n = readlink(path.c_str(), target, sizeof target - 1);
  if (n <= 0) return path;
  std::string t(target, size_t(n));
  return t[0] == '/' ? t : folder_of(path) + "/" + t;
}

}  // namespace

OutputFile::OutputFile(char const* command, std::string const& path)
    : _command(command), _path(path) {
  if (path.empty() || path == "-") return;
  struct stat info;
  std::string folder;
  if (stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) {
    if (access(path.c_str(), W_OK) != 0) {
      std::fprintf(stderr, "t2sfst %s: cannot write %s: %s\n", command, path.c_str(),
                   std::strerror(errno));
      _ok = false;
      return;
    }
    _through = true;
    char const* tmp = std::getenv("TMPDIR");
    folder = tmp && *tmp ? tmp : "/tmp";
  } else {
    if (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) _path = link_target(path);
    if (!CanWrite(command, _path)) {
      _ok = false;
      return;
    }
    folder = folder_of(_path);
  }
  std::string name = _path.substr(_path.rfind('/') == std::string::npos ? 0 : _path.rfind('/') + 1);
  std::string pattern = folder + "/." + name + ".XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  int fd = mkstemp(buffer.data());
  if (fd < 0) {
    std::fprintf(stderr, "t2sfst %s: cannot write beside %s: %s\n", command, path.c_str(),
                 std::strerror(errno));
    _ok = false;
    return;
  }
  close(fd);
  _temp = buffer.data();
}

OutputFile::~OutputFile() {
  delete _file;
  if (!_temp.empty() && !_committed) unlink(_temp.c_str());
}

std::ostream& OutputFile::stream() {
  if (_temp.empty()) return std::cout;
  if (!_file) _file = new std::ofstream(_temp, std::ios::binary | std::ios::trunc);
  return *_file;
}

// Copies the finished output into a path that is not a regular file.
bool OutputFile::_copy_through() {
  std::ifstream in(_temp, std::ios::binary);
  std::ofstream out(_path, std::ios::binary);
  char buffer[1 << 16];
  while (in && out) {
    in.read(buffer, sizeof buffer);
    out.write(buffer, in.gcount());
  }
  out.flush();
  if (out && !in.bad()) return true;
  std::fprintf(stderr, "t2sfst %s: cannot write %s: %s\n", _command, _path.c_str(),
               errno ? std::strerror(errno) : "write failed");
  return false;
}

bool OutputFile::commit() {
  if (_temp.empty()) {
    std::cout.flush();
    return bool(std::cout);
  }
  bool written = true;
  if (_file) {
    _file->close();
    written = !_file->fail();
  }
  if (_through) {
    if (!written) {
      std::fprintf(stderr, "t2sfst %s: cannot write %s: write failed\n", _command, _path.c_str());
      return false;
    }
    errno = 0;
    return _copy_through();  // the temporary file goes with the destructor
  }
  // A new file gets the permissions the user's umask gives, not mkstemp's private ones.
  mode_t mask = umask(0);
  umask(mask);
  struct stat info;
  mode_t mode = stat(_path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0666 & ~mask;
  if (!written || chmod(_temp.c_str(), mode) != 0 || rename(_temp.c_str(), _path.c_str()) != 0) {
    std::fprintf(stderr, "t2sfst %s: cannot write %s: %s\n", _command, _path.c_str(),
                 written ? std::strerror(errno) : "write failed");
    return false;
  }
  _committed = true;
  return true;
}

int UsageError(char const* command, char const* message) {
  std::fprintf(stderr, "t2sfst %s: %s (see 't2sfst help %s')\n", command, message, command);
  return 2;
}

struct Progress::State {
  char const* command;
  std::mutex mutex;
  std::condition_variable wake;
  std::string stage;
  bool done = false, shown = false;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  std::thread ticker;

  void erase() {  // under the lock
    if (shown) std::fprintf(stderr, "\r\033[K");
    shown = false;
  }
};

Progress::Progress(char const* command, Arguments const& args) {
  if (args.has("--quiet") || !isatty(STDERR_FILENO)) return;
  _state = new State;
  _state->command = command;
  _state->ticker = std::thread([s = _state] {
    std::unique_lock<std::mutex> lock(s->mutex);
    while (!s->wake.wait_for(lock, std::chrono::seconds(1), [s] { return s->done; })) {
      auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(
                               std::chrono::steady_clock::now() - s->start)
                               .count();
      std::fprintf(stderr, "\r\033[Kt2sfst %s: %s... %lld s", s->command, s->stage.c_str(),
                   static_cast<long long>(seconds));
      std::fflush(stderr);
      s->shown = true;
    }
    s->erase();
  });
}

Progress::~Progress() {
  if (!_state) return;
  {
    std::lock_guard<std::mutex> lock(_state->mutex);
    _state->done = true;
  }
  _state->wake.notify_all();
  _state->ticker.join();
  delete _state;
}

void Progress::stage(char const* name) {
  if (!_state) return;
  std::lock_guard<std::mutex> lock(_state->mutex);
  _state->stage = name;
}

void Progress::clear() {
  if (!_state) return;
  std::lock_guard<std::mutex> lock(_state->mutex);
  _state->erase();
}

t2s_model* LoadModel(char const* command, std::string const& path, int options) {
  std::string const wrong = path == "-" ? "" : WrongKindOfFile(path, FileKind::model);
  if (!wrong.empty()) {
    std::fprintf(stderr, "t2sfst %s: %s%s\n", command, path.c_str(), wrong.c_str());
    return nullptr;
  }
  char error[256];
  t2s_model* model = t2s_model_load_with(path.c_str(), options, error, sizeof error);
  if (!model) std::fprintf(stderr, "t2sfst %s: %s: %s\n", command, path.c_str(), error);
  return model;
}
