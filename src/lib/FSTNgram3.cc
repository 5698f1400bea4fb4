#include "FSTNgram3.h"

#include "FSTlib.h"

FSTNgram3Rep::FSTNgram3Rep(FSTNgramTables tables)
    : FSTNgramRep((FST_ASSERT(tables.order == 3), std::move(tables)), "FSTNgram3") {}

FSTGeneric FSTLoadNgram3(std::istream& is, char const* header) {
  return new FSTNgram3Rep(FSTNgramReadText(is, header, 3));
}
