#include "CommandSupport.h"

#include "t2s_runtime.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include <sys/stat.h>
#include <unistd.h>

Arguments::Arguments(int argc, char** argv, std::vector<std::string> const& flags,
                     std::vector<std::string> const& with_value) {
  auto listed = [](std::vector<std::string> const& list, std::string const& s) {
    for (std::string const& item : list)
      if (item == s) return true;
    return false;
  };
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg.size() > 1 && arg[0] == '-' && arg != "-") {
      if (listed(flags, arg)) {
        options.push_back({arg, ""});
      } else if (listed(with_value, arg) && i + 1 < argc) {
        options.push_back({arg, argv[++i]});
      } else {
        std::fprintf(stderr, "t2sfst %s: unknown option or missing value: %s\n", argv[0],
                     arg.c_str());
        ok = false;
      }
    } else {
      positional.push_back(arg);
    }
  }
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

FSTGeneric LoadInput(char const* command, std::string const& path) {
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

OutputFile::OutputFile(char const* command, std::string const& path)
    : _command(command), _path(path) {
  if (path.empty() || path == "-") return;
  if (!CanWrite(command, path)) {
    _ok = false;
    return;
  }
  std::string name = path.substr(path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1);
  std::string pattern = folder_of(path) + "/." + name + ".XXXXXX";
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
