#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "FST.h"

namespace {

float const nan = std::numeric_limits<float>::quiet_NaN();

TEST(Semiring, ConstantsAndIdentity) {
  struct Expected {
    FSTSemiringBase const* s;
    float zero, one, tolerance;
    char const* name;
    bool idempotent;
  };
  for (Expected e : {Expected{FSTMinPlus, 1e30f, 0, 0.001f, "MinPlus", true},
                     Expected{FSTMaxPlus, -1e30f, 0, 0.001f, "MaxPlus", true},
                     Expected{FSTPlusTimes, 0, 1, 1e-6f, "PlusTimes", false},
                     Expected{FSTPlusTimesLog, 1e30f, 0, 0.001f, "PlusTimesLog", false}}) {
    SCOPED_TRACE(e.name);
    EXPECT_EQ(e.s->zero, e.zero);
    EXPECT_EQ(e.s->one, e.one);
    EXPECT_EQ(e.s->tolerance, e.tolerance);
    EXPECT_STREQ(e.s->name, e.name);
    EXPECT_EQ(e.s->idempotent(), e.idempotent);
    // The identities and the zero's annihilation hold for ordinary weights.
    float w = e.s == FSTPlusTimes ? 0.25f : 2.5f;
    EXPECT_EQ(e.s->times(w, e.s->one), w);
    EXPECT_EQ(e.s->plus(w, e.s->zero), w);
    EXPECT_EQ(e.s->invert(e.s->zero), e.s->zero);
    EXPECT_EQ(e.s->unconvert(0), e.s->zero);
    EXPECT_TRUE(e.s->is_equal(e.s->times(w, e.s->invert(w)), e.s->one));
    EXPECT_TRUE(e.s->is_equal(e.s->divide(e.s->times(w, 0.5f), 0.5f), w));
  }
  EXPECT_NE(FSTMinPlus, FSTPlusTimesLog);  // same constants, distinct objects
}

TEST(Semiring, MinPlusArithmeticAndTolerance) {
  FSTSemiringBase const& s = *FSTMinPlus;
  EXPECT_EQ(s.plus(1e30f, 3), 3);
  EXPECT_EQ(s.times(1e30f, 3), 1e30f + 3.0f);  // no saturation
  EXPECT_EQ(s.closure(-5), 0);                 // negative loops are not detected
  EXPECT_FALSE(s.is_better(2.9995f, 3));
  EXPECT_TRUE(s.is_better(2.998f, 3));
  EXPECT_TRUE(s.is_better(2.9995f, 3, 0.0001f));
  EXPECT_EQ(s.convert(1e30f), 0);
  EXPECT_EQ(s.convert(0), 1);
}

TEST(Semiring, MaxPlusAndPlusTimes) {
  EXPECT_EQ(FSTMaxPlus->plus(-1e30f, 3), 3);
  EXPECT_FALSE(FSTMaxPlus->is_better(3.0005f, 3));  // within the tolerance
  EXPECT_FLOAT_EQ(FSTMaxPlus->convert(std::log(0.5f)), 0.5f);
  EXPECT_EQ(FSTPlusTimes->closure(0.75f), 4);
  EXPECT_EQ(FSTPlusTimes->invert(4), 0.25f);
  EXPECT_TRUE(FSTPlusTimes->is_equal(0.5f, 0.5000005f));
  EXPECT_FALSE(FSTPlusTimes->is_equal(0.5f, 0.500002f));
}

TEST(Semiring, PlusTimesLogAddsProbabilities) {
  FSTSemiringBase const& s = *FSTPlusTimesLog;
  EXPECT_NEAR(s.plus(0, 0), -std::log(2.0f), 1e-6);
  EXPECT_EQ(s.plus(5, 1e30f), 5);
  EXPECT_EQ(s.plus(1e30f, 5), 5);
  // -log(exp(-a) + exp(-b)) in either argument order, also far apart (no overflow).
  for (float a : {0.1f, 1.0f, 7.0f, 80.0f})
    for (float b : {0.3f, 2.0f, 50.0f, 200.0f}) {
      double expected = -std::log(std::exp(-double(a)) + std::exp(-double(b)));
      EXPECT_NEAR(s.plus(a, b), expected, 1e-5) << a << " " << b;
      EXPECT_EQ(s.plus(a, b), s.plus(b, a));
    }
  EXPECT_NEAR(s.plus(1, 2, 3), s.plus(s.plus(1, 2), 3), 0);
  // The closure's sign is part of the contract: -log(1 - exp(-a)), positive for a > 0.
  EXPECT_NEAR(s.closure(std::log(2.0f)), std::log(2.0f), 1e-6);
  EXPECT_NEAR(s.closure(1), -std::log(1 - std::exp(-1.0)), 1e-6);
  EXPECT_EQ(s.better(3, 2), 2);
  EXPECT_EQ(s.convert(1e30f), 0);
}

TEST(Semiring, MinAndMaxReturnTheSecondOperandOnTiesAndNaN) {
  EXPECT_EQ(FSTMinPlus->plus(nan, 3), 3);
  EXPECT_EQ(FSTMinPlus->better(nan, 2), 2);
  EXPECT_TRUE(std::isnan(FSTMinPlus->plus(3, nan)));
  EXPECT_EQ(FSTMaxPlus->plus(nan, 3), 3);
  EXPECT_EQ(FSTPlusTimes->better(nan, 0.5f), 0.5f);
  EXPECT_EQ(FSTPlusTimesLog->better(nan, 4), 4);
  // Negative zero against zero: not strictly smaller, so the second comes back.
  EXPECT_TRUE(std::signbit(FSTMinPlus->plus(0.0f, -0.0f)));
  EXPECT_FALSE(std::signbit(FSTMinPlus->plus(-0.0f, 0.0f)));
}

}  // namespace
