// Loading machines: the first word after "#" on the first line picks the reader; a stream
// without "#" is read as text.
#ifndef T2SFST_FSTLOAD_H
#define T2SFST_FSTLOAD_H

#include <iosfwd>
#include <string>

#include "FSTGeneric.h"

// Dispatches on an open stream; with no file name there is nothing to reload from.
FSTGeneric FSTLoadStream(std::istream& is);
// Opens and reads a file; one that cannot be read is fatal.
FSTGeneric FSTLoadFile(char const* file);
// Tries the source as an expression first, then as a file name (null, "" and "-" read standard
// input). A loaded file's modification time is remembered, so FSTGeneric::reload() follows it.
FSTGeneric FSTLoad(char const* source);
FSTGeneric FSTLoad(std::string const& source);
// For files that name other machines: spec as a file in the folder of file when there is one,
// else as FSTLoad reads it.
FSTGeneric FSTLoadBeside(std::string const& spec, char const* file);
// Like FSTLoad, expressions included: only the C-string form reads the file alone.
FSTGeneric FSTLoadFile(std::string const& source);

// What the readers take from a header line: the semiring named in it (the first of
// "PlusTimesLog", "PlusTimes", "MaxPlus" found in it, else MinPlus), and the value after a
// keyword such as "WeightScale=" (read with format), or fallback.
FSTSemiringBase const* FSTHeaderSemiring(char const* header);
float FSTHeaderValue(char const* header, char const* keyword, char const* format, float fallback);

// Standard input as the loaders read it.
std::istream& FSTBinaryCin();

#endif
