#include "FSTExpressionParser.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "FSTCache.h"
#include "FSTCacheLRU.h"
#include "FSTCompose.h"
#include "FSTDeterminize.h"
#include "FSTInvert.h"
#include "FSTLoad.h"
#include "FSTNgramOps.h"
#include "FSTRemoveEpsilons.h"
#include "FSTStringMap.h"
#include "FSTUnion.h"
#include "FSTlib.h"

#include "FSTExpressionParser.hh"

int FSTExpression_yyparse(FSTExpressionParser& parser);

FSTExpressionParser::FSTExpressionParser(std::string const& text) : _text(text) {}

int FSTExpressionParser::LexerInput(char* buffer, int max_size) {
  size_t n = std::min(size_t(max_size), _text.size() - _read);
  std::memcpy(buffer, _text.data() + _read, n);
  _read += n;
  return int(n);
}

int FSTExpressionParser::lex(FSTEXPRESSION_YYSTYPE* value) {
  int token = yylex();
  _at_end = token == 0;
  _last_token.assign(YYText(), size_t(YYLeng()));
  if (token == FSTEXPRESSION_NAME || token == FSTEXPRESSION_STRING || token == FSTEXPRESSION_TAG ||
      token == FSTEXPRESSION_FUNCTION)
    value->text = new std::string(_last_token);
  return token;
}

void FSTExpressionParser::syntax_error() {
  _messages += "syntax error before " + (_at_end ? std::string("end of expression") : _last_token);
  _messages += "\n";
}

std::string FSTExpressionParser::unquote(std::string const& quoted) const {
  std::string text;
  for (size_t i = 1; i + 1 < quoted.size(); ++i) {
    if (quoted[i] == '\\' && i + 2 < quoted.size()) ++i;
    text += quoted[i];
  }
  return text;
}

// A file that cannot be read fails the parse rather than the process: the loader then tries the
// whole text as a file name.
FSTGeneric* FSTExpressionParser::file(std::string const& name) {
  struct stat info;
  if (stat(name.c_str(), &info) != 0 || S_ISDIR(info.st_mode) || !std::ifstream(name)) {
    _messages += "can't read file " + name + "\n";
    return nullptr;
  }
  return new FSTGeneric(FSTLoadFile(name.c_str()));
}

namespace {

// A whole argument read as a number, or false.
bool number(std::string const& text, double& value) {
  char* end;
  errno = 0;
  value = std::strtod(text.c_str(), &end);
  return !text.empty() && *end == 0 && errno == 0;
}

}  // namespace

FSTGeneric* FSTExpressionParser::call(std::string const& function, FSTGeneric const& e,
                                      std::vector<std::string> const& arguments) {
  std::vector<double> values;
  for (std::string const& argument : arguments) {
    double v;
    if (!number(argument, v)) {
      _messages += "syntax error before " + argument + "\n";
      return nullptr;
    }
    values.push_back(v);
  }
  auto count_is = [&](size_t low, size_t high) {
    if (values.size() >= low && values.size() <= high) return true;
    _messages += "syntax error before " + function + " (" + std::to_string(values.size()) +
                 " arguments after its machine)\n";
    return false;
  };
  auto whole = [&](size_t i) {
    // Compared before the conversion, which is undefined outside the range of int.
    double v = values[i];
    if (v >= -2147483648.0 && v <= 2147483647.0 && v == double(int(v))) return true;
    _messages += "syntax error before " + arguments[i] + "\n";
    return false;
  };
  if (function == "invert") return count_is(0, 0) ? new FSTGeneric(FSTInvert(e)) : nullptr;
  if (function == "cache") return count_is(0, 0) ? new FSTGeneric(FSTCache(e)) : nullptr;
  if (function == "det") {
    if (!count_is(0, 2) || (values.size() > 0 && !whole(0))) return nullptr;
    int limit = values.size() > 0 ? int(values[0]) : 1;
    float delta = values.size() > 1 ? float(values[1]) : 0.001f;
    return new FSTGeneric(FSTDeterminize(e, limit, false, delta, false));
  }
  if (function == "re") {
    if (!count_is(0, 1)) return nullptr;
    return new FSTGeneric(FSTRemoveEpsilonsA(e, values.empty() ? 0.001f : float(values[0])));
  }
  if (function == "lru") {
    if (!count_is(1, 1) || !whole(0)) return nullptr;
    if (values[0] < 1) {
      _messages += "syntax error before " + arguments[0] + " (an LRU cache holds 1 state or more)\n";
      return nullptr;
    }
    return new FSTGeneric(FSTCacheLRU(e, int(values[0])));
  }
  if (function == "ngram_det" || function == "ngram_invert") {
    if (!count_is(0, 0)) return nullptr;
    if (!FSTNgramCast(e)) {
      _messages += function + ": the machine is not an n-gram model\n";
      return nullptr;
    }
    return new FSTGeneric(function == "ngram_det" ? FSTNgramDeterminize(e) : FSTNgramInvert(e));
  }
  _messages += "syntax error before " + function + "\n";
  return nullptr;
}

FSTGeneric* FSTExpressionParser::make_union(Operands* operands) {
  if (operands->size() == 1 && operands->front().tag.empty())
    return new FSTGeneric(operands->front().machine);
  fst::vector<FSTGeneric> machines;
  fst::vector<int> inputs, outputs;
  bool tagged = false;
  for (Operand const& o : *operands) {
    machines.push_back(o.machine);
    int in = 0, out = 0;
    if (!o.tag.empty()) {
      tagged = true;
      std::string inner = o.tag.substr(1, o.tag.size() - 2);
      size_t colon = inner.find(':');
      std::string in_text = inner.substr(0, colon);
      std::string out_text = colon == std::string::npos ? in_text : inner.substr(colon + 1);
      in = in_text.empty() ? 0 : FSTstring_map[in_text];
      out = out_text.empty() ? 0 : FSTstring_map[out_text];
    }
    inputs.push_back(in);
    outputs.push_back(out);
  }
  return new FSTGeneric(tagged ? FSTUnion(machines, inputs, outputs) : FSTUnion(machines));
}

bool FSTExpressionParser::parse(FSTGeneric& result, std::string& messages) {
  bool ok = FSTExpression_yyparse(*this) == 0 && _result;
  if (!ok) {
    messages = _messages;
    return false;
  }
  result = _result;
  return true;
}

bool FSTExpression(std::string const& text, FSTGeneric& result, std::string& messages) {
  FSTExpressionParser parser(text);
  return parser.parse(result, messages);
}

FSTGeneric FSTExpression(std::string const& text) {
  FSTGeneric result;
  std::string messages;
  if (!FSTExpression(text, result, messages))
    FSTFatal("can't parse expression %s\n%s", text.c_str(), messages.c_str());
  return result;
}
