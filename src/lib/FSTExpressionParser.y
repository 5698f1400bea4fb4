/* Parser of the expression language: unions of compositions of (tagged) operands, an operand a
   file, a parenthesised expression or a function call. Each construct builds its machine through
   the parser object. */
%define api.pure full
%define api.prefix {FSTExpression_yy}
%define api.token.prefix {FSTEXPRESSION_}
%parse-param {FSTExpressionParser& parser}
%lex-param {FSTExpressionParser& parser}

%code requires {
#include <string>
#include <vector>

#include "FSTGeneric.h"
class FSTExpressionParser;
struct FSTExpressionOperand;
}

%code {
#include "FSTCompose.h"
#include "FSTExpressionParser.h"

int FSTExpression_yylex(FSTEXPRESSION_YYSTYPE* value, FSTExpressionParser& parser) {
  return parser.lex(value);
}
void FSTExpression_yyerror(FSTExpressionParser& parser, char const*) { parser.syntax_error(); }
}

%union {
  std::string* text;
  FSTGeneric* fst;
  FSTExpressionOperand* operand;
  std::vector<FSTExpressionOperand>* operands;
  std::vector<std::string>* arguments;
}

%token <text> NAME STRING TAG FUNCTION
%token BAD
%type <fst> expression composition primary call
%type <operand> operand
%type <operands> union
%type <arguments> arguments

%destructor { delete $$; } <text> <fst> <operand> <operands> <arguments>

%%

input
  : expression                        { parser.finish(*$1); delete $1; }
  ;

expression
  : union                             { $$ = parser.make_union($1); delete $1; if (!$$) YYABORT; }
  ;

union
  : operand                           { $$ = new std::vector<FSTExpressionOperand>{*$1}; delete $1; }
  | union '|' operand                 { $$ = $1; $$->push_back(*$3); delete $3; }
  ;

operand
  : composition                       { $$ = new FSTExpressionOperand{*$1, ""}; delete $1; }
  | TAG composition                   { $$ = new FSTExpressionOperand{*$2, *$1}; delete $1; delete $2; }
  ;

composition
  : primary
  | composition '@' primary           { $$ = new FSTGeneric(FSTCompose(*$1, *$3)); delete $1; delete $3; }
  ;

primary
  : '(' expression ')'                { $$ = $2; }
  | call
  | NAME                              { $$ = parser.file(*$1); delete $1; if (!$$) YYABORT; }
  | STRING                            { $$ = parser.file(parser.unquote(*$1)); delete $1; if (!$$) YYABORT; }
  ;

call
  : FUNCTION '(' expression arguments ')'
                                      { $$ = parser.call(*$1, *$3, *$4); delete $1; delete $3; delete $4; if (!$$) YYABORT; }
  ;

arguments
  : %empty                            { $$ = new std::vector<std::string>; }
  | arguments ',' NAME                { $$ = $1; $$->push_back(*$3); delete $3; }
  ;

%%
