#include "tests/reference/network.h"

#include <cmath>

namespace orvel_test {
namespace {

Signal affine(const Dense& w, const Floats& bias, const Signal& x) {
  Signal y(bias.begin(), bias.end());
  for (size_t j = 0; j < y.size(); ++j) {
    for (size_t i = 0; i < x.size(); ++i)
      y[j] += x[i] * w.at(i, j);
  }
  return y;
}

Signal logistic(Signal v) {
  for (double& value : v)
    value = 1.0 / (1.0 + std::exp(-value));
  return v;
}

Signal gatedBlock(const TestModel& model, size_t layer, const Signal& x) {
  const Signal a = affine(model.nonLinear[layer], model.nonLinearBias[layer], x);
  Signal y = affine(model.linear[layer], model.linearBias[layer], x);
  for (size_t k = 0; k < y.size(); ++k)
    y[k] += std::fmax(a[k], 0.0);
  return y;
}

}  // namespace

Signal feedForwardMask(const TestModel& model, Signal x) {
  const size_t last = model.linear.size() - 1;
  for (size_t layer = 0; layer < last; ++layer) {
    x = gatedBlock(model, layer, x);
    if (model.generation() > 2) continue;
    for (size_t k = 0; k < x.size(); ++k) {
      x[k] = x[k] * model.multiplier[layer][k] - model.reducer[layer][k];
    }
  }
  return logistic(affine(model.nonLinear[last], model.nonLinearBias[last], x));
}

Signal Recurrent::hidden(const Signal& x) {
  Signal u = state_;
  u.insert(u.end(), x.begin(), x.end());
  const Signal gate = logistic(affine(model_.gru[0], model_.gruBias[0], u));
  Signal y = u;
  for (size_t layer = 0; layer + 1 < model_.linear.size(); ++layer) {
    y = gatedBlock(model_, layer, y);
    for (size_t i = 0; layer == 0 && i < y.size(); ++i) {
      const double z = gate.size() == 1 ? gate[0] : gate[i];
      state_[i] = (1.0 - z) * state_[i] + z * y[i];
    }
  }
  return y;
}

Signal Recurrent::mask(const Signal& x) {
  const size_t last = model_.nonLinear.size() - 1;
  const Signal y = hidden(x);
  return logistic(affine(model_.nonLinear[last], model_.nonLinearBias[last], y));
}

double Recurrent::raw(const Signal& x) {
  const size_t last = model_.linear.size() - 1;
  const Signal y = hidden(x);
  return affine(model_.linear[last], model_.linearBias[last], y)[0];
}

}  // namespace orvel_test
