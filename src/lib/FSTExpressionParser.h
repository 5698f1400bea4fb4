// The parser object of the expression language: the generated scanner (reading the text through
// LexerInput), the messages, and the operations the generated parser calls. Internal: the
// public interface is FSTExpression.h.
#ifndef T2SFST_FSTEXPRESSIONPARSER_H
#define T2SFST_FSTEXPRESSIONPARSER_H

#include <string>
#include <vector>

#include "FSTExpression.h"

#undef yyFlexLexer
#define yyFlexLexer FSTExpressionParserFlexLexer
#include <FlexLexer.h>

union FSTEXPRESSION_YYSTYPE;

// A member of a union and its tag ("<in:out>" as written; empty when there is none).
struct FSTExpressionOperand {
  FSTGeneric machine;
  std::string tag;
};

// The parser object: the scanner (its input is the text, through LexerInput), the messages and
// the operations the generated parser calls.
class FSTExpressionParser : public FSTExpressionParserFlexLexer {
 public:
  using Operand = FSTExpressionOperand;
  using Operands = std::vector<Operand>;

  explicit FSTExpressionParser(std::string const& text);
  bool parse(FSTGeneric& result, std::string& messages);

  // ---- for the generated parser ----
  int lex(FSTEXPRESSION_YYSTYPE* value);
  void syntax_error();
  void finish(FSTGeneric const& m) { _result = m; }
  // Each returns null after writing its message when it cannot build the machine.
  FSTGeneric* make_union(Operands* operands);
  FSTGeneric* file(std::string const& name);
  FSTGeneric* call(std::string const& function, FSTGeneric const& e,
                   std::vector<std::string> const& arguments);
  std::string unquote(std::string const& quoted) const;

 protected:
  int LexerInput(char* buffer, int max_size) override;

 private:
  std::string const& _text;
  size_t _read = 0;
  std::string _last_token;  // the text of the token last scanned; empty at the end
  bool _at_end = false;
  std::string _messages;
  FSTGeneric _result;
};

#endif
