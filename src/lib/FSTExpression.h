// Machine algebra in text: unions ("|") of compositions ("@", binding tighter) of operands, an
// operand being a file, a parenthesised expression or a call (invert, det, re, cache, lru,
// ngram_det, ngram_invert), optionally tagged "<in:out>" for the union. Parsing is linear in the
// text; the result is the lazy machine the calls build, operands loaded as files.
//
//   expression  := composition { "|" composition }     one union of all operands
//   composition := [ tag ] primary { "@" primary }     left-associative composition
//   tag         := "<" [in] [ ":" [out] ] ">"          <n> is <n:n>; <n:> input only; <:n> output
//   primary     := "(" expression ")" | call | file
//   call        := invert(e) | det(e [, limit [, delta]]) | re(e [, tolerance]) | cache(e)
//                | lru(e, size) | ngram_det(e) | ngram_invert(e)
//   file        := a bare name of letters, digits and . _ - / + ~ (a name followed by "(" is a
//                  call) | a double-quoted string with \" and \\ escapes
//
// A tag stands before the first operand of a union member and tags the whole member.
#ifndef T2SFST_FSTEXPRESSION_H
#define T2SFST_FSTEXPRESSION_H

#include <string>
#include <vector>

#include "FSTGeneric.h"

// Parses text; on success the machine goes to result, else the messages to messages (result is
// left alone).
bool FSTExpression(std::string const& text, FSTGeneric& result, std::string& messages);
// The same, returning the machine: a text that does not parse is fatal with the messages.
FSTGeneric FSTExpression(std::string const& text);

#endif
