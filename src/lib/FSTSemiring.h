// The four weight semirings. Each is one immutable process-wide object; machines compare
// semiring pointers by identity.
#ifndef T2SFST_FSTSEMIRING_H
#define T2SFST_FSTSEMIRING_H

class FSTSemiringBase {
 public:
  constexpr FSTSemiringBase(float zero, float one, float tolerance, char const* name)
      : zero(zero), one(one), tolerance(tolerance), name(name) {}
  virtual ~FSTSemiringBase() {}

  virtual float times(float a, float b) const = 0;
  virtual float times(float a, float b, float c) const = 0;
  virtual float plus(float a, float b) const = 0;
  virtual float plus(float a, float b, float c) const = 0;
  virtual float closure(float a) const = 0;
  virtual float divide(float a, float b) const = 0;
  virtual float invert(float a) const = 0;
  virtual float better(float a, float b) const = 0;
  // a better than b by more than the tolerance.
  virtual bool is_better(float a, float b) const = 0;
  virtual bool is_better(float a, float b, float tolerance) const = 0;
  virtual bool is_equal(float a, float b) const = 0;
  virtual bool is_equal(float a, float b, float tolerance) const = 0;
  // Weight to probability and back.
  virtual float convert(float w) const = 0;
  virtual float unconvert(float p) const = 0;
  virtual bool idempotent() const = 0;

  float const zero;       // weight of an impossible path
  float const one;        // weight of the empty path
  float const tolerance;  // default tolerance of is_better and is_equal
  char const* const name;
};

// Tropical: costs, smaller is better.
class FSTMinPlusSemiring : public FSTSemiringBase {
 public:
  constexpr FSTMinPlusSemiring() : FSTSemiringBase(1e30f, 0.0f, 0.001f, "MinPlus") {}
  float times(float a, float b) const override;
  float times(float a, float b, float c) const override;
  float plus(float a, float b) const override;
  float plus(float a, float b, float c) const override;
  float closure(float a) const override;
  float divide(float a, float b) const override;
  float invert(float a) const override;
  float better(float a, float b) const override;
  bool is_better(float a, float b) const override;
  bool is_better(float a, float b, float tolerance) const override;
  bool is_equal(float a, float b) const override;
  bool is_equal(float a, float b, float tolerance) const override;
  float convert(float w) const override;
  float unconvert(float p) const override;
  bool idempotent() const override;

 protected:
  // MaxPlus and PlusTimesLog share the additive arithmetic and differ in zero and name.
  constexpr FSTMinPlusSemiring(float zero, char const* name)
      : FSTSemiringBase(zero, 0.0f, 0.001f, name) {}
};

// Scores, larger is better.
class FSTMaxPlusSemiring : public FSTMinPlusSemiring {
 public:
  constexpr FSTMaxPlusSemiring() : FSTMinPlusSemiring(-1e30f, "MaxPlus") {}
  float plus(float a, float b) const override;
  float plus(float a, float b, float c) const override;
  float better(float a, float b) const override;
  bool is_better(float a, float b) const override;
  bool is_better(float a, float b, float tolerance) const override;
  float convert(float w) const override;
  float unconvert(float p) const override;
};

// Probabilities, larger is better; not idempotent.
class FSTPlusTimesSemiring : public FSTSemiringBase {
 public:
  constexpr FSTPlusTimesSemiring() : FSTSemiringBase(0.0f, 1.0f, 1e-6f, "PlusTimes") {}
  float times(float a, float b) const override;
  float times(float a, float b, float c) const override;
  float plus(float a, float b) const override;
  float plus(float a, float b, float c) const override;
  float closure(float a) const override;
  float divide(float a, float b) const override;
  float invert(float a) const override;
  float better(float a, float b) const override;
  bool is_better(float a, float b) const override;
  bool is_better(float a, float b, float tolerance) const override;
  bool is_equal(float a, float b) const override;
  bool is_equal(float a, float b, float tolerance) const override;
  float convert(float w) const override;
  float unconvert(float p) const override;
  bool idempotent() const override;
};

// Negated natural logarithms of probabilities, smaller is better; not idempotent.
class FSTPlusTimesLogSemiring : public FSTMinPlusSemiring {
 public:
  constexpr FSTPlusTimesLogSemiring() : FSTMinPlusSemiring(1e30f, "PlusTimesLog") {}
  float plus(float a, float b) const override;
  float plus(float a, float b, float c) const override;
  float closure(float a) const override;
  bool idempotent() const override;
};

extern FSTSemiringBase const* const FSTMinPlus;
extern FSTSemiringBase const* const FSTMaxPlus;
extern FSTSemiringBase const* const FSTPlusTimes;
extern FSTSemiringBase const* const FSTPlusTimesLog;

#endif
