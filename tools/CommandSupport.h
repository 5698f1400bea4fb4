// What the machine-reading subcommands share: argument scanning, and checking files before the
// library's loader, which aborts on a file it cannot read.
#ifndef T2SFST_TOOLS_COMMANDSUPPORT_H
#define T2SFST_TOOLS_COMMANDSUPPORT_H

#include <fstream>
#include <string>
#include <vector>

#include "FST.h"

// Splits argv[1..] into options (with their values) and positional arguments, by the options
// that the table lists for the command argv[0]. A value follows its option as the next argument
// or after "=" ("--sep=,"); "--" ends the options. An unknown option, a missing value or a value
// given to a flag prints one line and sets ok to false.
struct Arguments {
  Arguments(int argc, char** argv);
  bool has(std::string const& option) const;
  std::string value(std::string const& option, std::string const& fallback = "") const;
  // Every value of an option that may be given more than once, in order.
  std::vector<std::string> values(std::string const& option) const;
  // A numeric option's value (fallback when absent), checked whole and within [low, high], and
  // a whole number where integral: false after one line naming the option and what it takes.
  bool number(std::string const& option, double fallback, double low, double high, bool integral,
              double& value) const;
  bool number(std::string const& option, int fallback, int low, int high, int& value) const;

  std::string command;  // the subcommand's name
  bool ok = true;
  std::vector<std::string> positional;
  std::vector<std::pair<std::string, std::string>> options;
};

// text as a number: all of it (leading blanks aside), finite unless infinite is allowed, and
// whole where integral, within [low, high].
bool ParseNumber(std::string const& text, double low, double high, bool integral, double& value);

// The file the command read last (LoadInput, CompileGrammar), named by a stop that happens
// after the reading, when the library no longer knows which file a machine came from.
std::string& LastInput();

// One line for a library stop inside a command: "t2sfst COMMAND: FILE[, line N]: message".
void ReportStop(char const* command, FSTStop const& stop);

// What a file is when it is a common mistake for the kind of file expected, as the rest of a
// sentence that starts with its name (" is a JSGF grammar, not a model: build one with t2sfst
// make-model", ": it is a directory", ": " and the system's reason when it cannot be read), or
// "" when it may be read as expected.
enum class FileKind { machine, model, grammar };
std::string WrongKindOfFile(std::string const& path, FileKind expected);

// Loads a machine from a file, or from standard input for "" or "-". A file that cannot be
// read prints "t2sfst COMMAND: cannot read FILE: reason" and gives a null handle.
FSTGeneric LoadInput(char const* command, std::string const& path);

// Like LoadInput, and a packed T2S model file is read too (through the runtime's validating
// loader): a machine over its bytes (labels of one byte) and output strings, MinPlus, final
// states of weight 0, named "T2SModel".
FSTGeneric LoadInputOrModel(char const* command, std::string const& path);

// A T2S model for a command, or null after one line naming the file: the wrong kind of file, or
// the runtime's reason for refusing it. Free it with t2s_model_free.
struct t2s_model;
t2s_model* LoadModel(char const* command, std::string const& path, int options = 0);

// Checks, without creating anything, that a file can be written; prints one line naming it when
// not.
bool CanWrite(char const* command, std::string const& path);

// An output that appears at its path only when complete: it is written to a temporary file
// beside the path and renamed into place by commit(), so an existing file is never lost and a
// reader never sees half of one. "" and "-" are standard output. A symbolic link is followed and
// its target replaced so. An existing path that is not a regular file (a device, a FIFO,
// /dev/stdout) is written through: the output goes to a temporary file in $TMPDIR (writers may
// seek) and commit() copies it into the path, which stays what it is.
class OutputFile {
 public:
  OutputFile(char const* command, std::string const& path);
  ~OutputFile();  // removes the temporary file unless it was committed
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;
  bool ok() const { return _ok; }
  std::ostream& stream();
  // The temporary file, for writers that open a path themselves (empty for standard output).
  std::string const& temp_path() const { return _temp; }
  // Closes and renames into place; prints the reason and returns false on failure.
  bool commit();

 private:
  char const* _command;
  bool _copy_through();

  std::string _path, _temp;
  std::ofstream* _file = nullptr;
  bool _ok = true, _committed = false;
  bool _through = false;  // the path is not a regular file: copied into, never replaced
};

// Writes m as AT&T text (and its symbol table to symbols_path unless empty); the exit status.
int WriteAtt(FSTGeneric const& m, std::ostream& os, std::string const& symbols_path);

// Compiles a grammar file with its imports (-I folders) for a command, showing every message of
// the compiler; references to undefined rules fail unless --allow-undefined.
bool CompileGrammar(char const* command, Arguments const& args, std::string const& grammar,
                    FSTJsgfOptions options, FSTGeneric& result);

// Exit status for wrong usage, after printing the command's usage line.
int UsageError(char const* command, char const* message);

// Progress of long work on standard error, when it is a terminal and --quiet was not given: after
// a second, one line "t2sfst COMMAND: STAGE... N s", rewritten each second and erased when the
// work ends (or when the next message is due: call clear() before writing one).
class Progress {
 public:
  Progress(char const* command, Arguments const& args);
  ~Progress();
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  void stage(char const* name);
  void clear();

 private:
  struct State;
  State* _state = nullptr;
};

// Loads IN, applies make to it, writes the stored result to OUT (standard output by default),
// as text or, with --binary, in the binary format. make gets the only handle on the input (as
// an rvalue), so it may release the input early; a null result from make (after its message)
// writes nothing and gives exit status 1.
template <class Make>
int CopyResult(char const* command, Arguments const& args, Make make) {
  if (!args.ok || args.positional.size() > 2) return UsageError(command, "wrong arguments");
  std::string in = args.positional.size() > 0 ? args.positional[0] : "";
  std::string out = args.positional.size() > 1 ? args.positional[1] : "";
  OutputFile file(command, out);
  if (!file.ok()) return 1;
  Progress progress(command, args);
  progress.stage("reading");
  FSTGeneric m = LoadInput(command, in);
  if (!m) return 1;
  progress.stage("computing");
  FSTGeneric made = make(std::move(m));
  if (!made) return 1;  // make said why; OUT stays as it was
  FSTGeneric result = FSTBasic(made);
  progress.stage("writing");
  if (args.has("--binary"))
    result->dump_binary(file.stream());
  else
    result->dump_ascii(file.stream(), true);
  return file.commit() ? 0 : 1;
}

#endif
