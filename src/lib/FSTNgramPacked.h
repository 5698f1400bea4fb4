// The packed n-gram file: a compact, self-contained form of a back-off model whose costs and
// back-off costs are quantized to 256 Lloyd-Max levels each (sq.h). All values little-endian:
//
//   "T2SNGRAM" (8 bytes), u32 version 1, u32 order, u32 V, then V words (u32 length, bytes)
//   u32 cost levels L, L f32 levels; u32 back-off levels B, B f32 levels
//   for k = 1 .. order: u32 count, then count records of k u32 word indices (into the words
//   above), a u8 cost level and, below the highest order, a u8 back-off level
//
// Writing is linear in the n-grams plus the quantizer's training (n log n); reading is linear
// in the file, every count and index checked against what the file can hold.
#ifndef T2SFST_FSTNGRAMPACKED_H
#define T2SFST_FSTNGRAMPACKED_H

#include <iosfwd>
#include <string>

#include "FSTGeneric.h"

// Writes the model's packed file at path and prints "MD5 (path) = DIGEST" on standard output;
// returns the digest. A machine that is not an n-gram model, or a path that cannot be written,
// is fatal.
std::string FSTNgramDumpPacked(FSTGeneric const& model, char const* path);
// The same without printing.
std::string FSTNgramDumpPackedQuiet(FSTGeneric const& model, char const* path);

// Whether the bytes start like a packed file ("T2SNGRAM").
bool FSTNgramIsPacked(char const* head, size_t size);

// A model read back from a packed file (costs at their quantized levels), as FSTNgram2Rep or
// FSTNgram3Rep. A file that is truncated, longer than its contents or inconsistent (an order
// other than 2 or 3, an index or level out of range) is fatal, naming it.
FSTGeneric FSTNgramLoadPacked(std::istream& is, std::string const& name);

#endif
