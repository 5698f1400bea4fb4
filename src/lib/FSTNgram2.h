// The back-off bigram model as a machine (FSTNgram.h); "#FSTNgram2 Version=2" files.
#ifndef T2SFST_FSTNGRAM2_H
#define T2SFST_FSTNGRAM2_H

#include "FSTNgram.h"

class FSTNgram2Rep : public FSTNgramRep {
 public:
  // tables.order must be 2.
  explicit FSTNgram2Rep(FSTNgramTables tables);
};

FSTGeneric FSTLoadNgram2(std::istream& is, char const* header);

#endif
