#pragma once

namespace segment {

/** How the cost of one more segment joins the cost of those before it. */
class CostCombiner {
  public:
    virtual ~CostCombiner() = default;
    virtual double combine(double previous, double segment) const = 0;
};

class SumCostCombiner : public CostCombiner {
  public:
    double combine(double previous, double segment) const override { return of(previous, segment); }

    /** For a double or a vector of doubles. */
    template <class Value>
    static Value of(const Value& previous, const Value& segment) {
        return previous + segment;
    }
};

class MaxCostCombiner : public CostCombiner {
  public:
    double combine(double previous, double segment) const override { return of(previous, segment); }

    template <class Value>
    static Value of(const Value& previous, const Value& segment) {
        return segment > previous ? segment : previous;
    }
};

}  // namespace segment
