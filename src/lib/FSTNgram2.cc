#include "FSTNgram2.h"

#include "FSTlib.h"

FSTNgram2Rep::FSTNgram2Rep(FSTNgramTables tables)
    : FSTNgramRep((FST_ASSERT(tables.order == 2), std::move(tables)), "FSTNgram2") {}

FSTGeneric FSTLoadNgram2(std::istream& is, char const* header) {
  return new FSTNgram2Rep(FSTNgramReadText(is, header, 2));
}
