// AT&T text, the common text format of WFST toolkits: "src dst in out weight" arc lines and
// "state [weight]" final lines, the start state's lines first, labels by name with a symbol
// table beside them ("<eps>" is 0). A label with white space is written with the escapes of the
// text format (a symbol such as new\syork), so it stays one field and comes back byte for byte.
// Writing forces the machine; time and memory linear in its size.
#ifndef T2SFST_FSTATT_H
#define T2SFST_FSTATT_H

#include <iosfwd>

#include "FSTGeneric.h"

// Writes m as AT&T text to os and, unless symbols is null, the table of the labels it uses
// ("name<TAB>id" lines, ids of this process) to symbols. A machine whose start state has no line
// of its own (no arc, not final) has an empty language and is written as an empty text.
void FSTDumpAtt(FSTGeneric const& m, std::ostream& os, std::ostream* symbols);

#endif
