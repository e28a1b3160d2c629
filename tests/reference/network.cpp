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

}  // namespace

Signal Network::hidden(const Signal& x) {
  Signal y = state_;
  y.insert(y.end(), x.begin(), x.end());
  const bool recurs = !state_.empty();
  // The scale and shift of each element exist in generations 1 and 2 only.
  const bool scales = model_.generation() == 1 || model_.generation() == 2;
  const Signal gate = recurs ? logistic(affine(model_.gru[0], model_.gruBias[0], y)) : Signal();
  for (size_t layer = 0; layer + 1 < model_.linear.size(); ++layer) {
    const Signal a = affine(model_.nonLinear[layer], model_.nonLinearBias[layer], y);
    y = affine(model_.linear[layer], model_.linearBias[layer], y);
    for (size_t k = 0; k < y.size(); ++k) {
      y[k] += std::fmax(a[k], 0.0);
      if (scales) y[k] = y[k] * model_.multiplier[layer][k] - model_.reducer[layer][k];
    }
    for (size_t i = 0; recurs && layer == 0 && i < y.size(); ++i) {
      const double z = gate.size() == 1 ? gate[0] : gate[i];
      state_[i] = (1.0 - z) * state_[i] + z * y[i];
    }
  }
  return y;
}

Signal Network::mask(const Signal& x) {
  return logistic(affine(model_.nonLinear.back(), model_.nonLinearBias.back(), hidden(x)));
}

double Network::raw(const Signal& x) {
  return affine(model_.linear.back(), model_.linearBias.back(), hidden(x))[0];
}

}  // namespace orvel_test
