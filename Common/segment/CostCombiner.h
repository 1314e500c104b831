#pragma once

namespace segment {

/** How the cost of one more segment joins the cost of those before it. */
class CostCombiner {
  public:
    virtual ~CostCombiner() = default;
    virtual double combine(double previous, double segment) const = 0;
};

/** Every deviation counts: a long segment weighs more than a short one. */
class SumCostCombiner : public CostCombiner {
  public:
    double combine(double previous, double segment) const override {
        add(previous, segment);
        return previous;
    }

    /** For a double or a vector of doubles. */
    template <class Value>
    static void add(Value& total, const Value& segment) {
        total = total + segment;
    }
};

/** The worst segment counts alone; the others may be as bad for nothing. */
class MaxCostCombiner : public CostCombiner {
  public:
    double combine(double previous, double segment) const override {
        add(previous, segment);
        return previous;
    }

    template <class Value>
    static void add(Value& total, const Value& segment) {
        total = segment > total ? segment : total;
    }
};

}  // namespace segment
