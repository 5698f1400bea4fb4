/* Parser of the JSGF grammar compiler: the structure of a grammar, or a bare expansion. Each
   construct calls the semantic operation of FSTJsgf_yy that builds its machine. */
%define api.pure full
%define api.prefix {FSTJsgf_yy}
%define api.token.prefix {FSTJSGF_}
%define parse.error custom
%parse-param {FSTJsgf_yy& jsgf}
%lex-param {FSTJsgf_yy& jsgf}

%code requires {
#include "FSTJsgf.h"
}

%code {
#include "FSTClosure.h"

int FSTJsgf_yylex(FSTJSGF_YYSTYPE* value, FSTJsgf_yy& jsgf) { return jsgf.lex(value); }
void FSTJsgf_yyerror(FSTJsgf_yy& jsgf, char const* message) { jsgf.error(message); }

}

%union {
  int label;
  float weight;
  FSTGeneric* fst;
  fst::vector<FSTGeneric>* list;
}

%token HEADER "#JSGF header" GRAMMAR "grammar" IMPORT "import" PUBLIC "public"
%token NULL_RULE "<NULL>" VOID_RULE "<VOID>"
%token <label> RULE_NAME "rule name" TOKEN "word" QUOTED "quoted word" TAG "tag"
%token <weight> WEIGHT "weight"
%type <fst> alternative item primary
%type <list> alternatives items
%type <label> word

%destructor { delete $$; } <fst> <list>

/* A bare expansion may begin with a word that is also a keyword: "grammar" before any of the
   four kinds of word, "public" before a rule name and "import" before a rule name are read as the
   start of a grammar. */
%expect 6

%%

input
  : grammar_file                     { jsgf.finish_grammar(); }
  | alternatives                     { bool ok = jsgf.finish_expression($1); delete $1; if (!ok) YYABORT; }
  ;

grammar_file
  : HEADER declaration imports rules
  | HEADER declaration imports
  | HEADER imports rules
  | HEADER imports
  | declaration imports rules
  | declaration imports
  | some_imports rules
  | some_imports
  | rules
  ;

declaration
  : GRAMMAR word ';'                 { jsgf.grammar_name($2); }
  ;

imports
  : %empty
  | some_imports
  ;

some_imports
  : import
  | some_imports import
  ;

import
  : IMPORT RULE_NAME ';'             { jsgf.import_statement($2); }
  ;

rules
  : rule
  | rules rule
  ;

rule
  : PUBLIC RULE_NAME '=' alternatives ';'  { jsgf.rule($2, $4, true); delete $4; }
  | RULE_NAME '=' alternatives ';'         { jsgf.rule($1, $3, false); delete $3; }
  ;

alternatives
  : alternative                      { $$ = new fst::vector<FSTGeneric>{*$1}; delete $1; }
  | alternatives '|' alternative     { $$ = $1; $$->push_back(*$3); delete $3; }
  ;

alternative
  : items                            { $$ = new FSTGeneric(jsgf.series($1, -1)); delete $1; }
  | WEIGHT items                     { $$ = new FSTGeneric(jsgf.series($2, $1)); delete $2; }
  | %empty                           { fst::vector<FSTGeneric> none; $$ = new FSTGeneric(jsgf.series(&none, -1)); }
  | WEIGHT                           { fst::vector<FSTGeneric> none; $$ = new FSTGeneric(jsgf.series(&none, $1)); }
  ;

items
  : item                             { $$ = new fst::vector<FSTGeneric>{*$1}; delete $1; }
  | items item                       { $$ = $1; $$->push_back(*$2); delete $2; }
  ;

item
  : primary
  | primary '*'                      { $$ = new FSTGeneric(FSTClosure(*$1, false)); delete $1; }
  | primary '+'                      { $$ = new FSTGeneric(FSTClosure(*$1, true)); delete $1; }
  | TAG                              { $$ = new FSTGeneric(jsgf.tag($1)); }
  ;

primary
  : word                             { $$ = new FSTGeneric(jsgf.simple($1, $1)); }
  | QUOTED                           { $$ = new FSTGeneric(jsgf.simple($1, $1)); }
  | RULE_NAME                        { $$ = new FSTGeneric(jsgf.simple($1, $1)); }
  | NULL_RULE                        { $$ = new FSTGeneric(jsgf.empty()); }
  | VOID_RULE                        { $$ = new FSTGeneric(jsgf._void()); }
  | '(' alternatives ')'             { $$ = new FSTGeneric(jsgf.group($2)); delete $2; }
  | '[' alternatives ']'             { $$ = new FSTGeneric(jsgf.optional(jsgf.group($2))); delete $2; }
  ;

word
  : TOKEN
  | GRAMMAR                          { $$ = jsgf.keyword_label("grammar"); }
  | IMPORT                           { $$ = jsgf.keyword_label("import"); }
  | PUBLIC                           { $$ = jsgf.keyword_label("public"); }
  ;

%%

// A syntax error names the token found and the tokens that could have stood there.
static int yyreport_syntax_error(yypcontext_t const* context, FSTJsgf_yy& jsgf) {
  yysymbol_kind_t expected[16];
  int const n = yypcontext_expected_tokens(context, expected, 16);
  std::vector<std::string> names;
  for (int i = 0; i < n; ++i) names.push_back(yysymbol_name(expected[i]));
  yysymbol_kind_t const found = yypcontext_token(context);
  jsgf.syntax_error(found == YYSYMBOL_YYEMPTY ? "" : yysymbol_name(found),
                    n < 0 ? std::vector<std::string>() : names);
  return 0;
}
