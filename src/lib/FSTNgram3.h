// The back-off trigram model as a machine (FSTNgram.h); "#FSTNgram3 Version=2" files.
#ifndef T2SFST_FSTNGRAM3_H
#define T2SFST_FSTNGRAM3_H

#include "FSTNgram.h"

class FSTNgram3Rep : public FSTNgramRep {
 public:
  // tables.order must be 3.
  explicit FSTNgram3Rep(FSTNgramTables tables);
};

FSTGeneric FSTLoadNgram3(std::istream& is, char const* header);

#endif
