#include "tools/chaos/chaos_controller.h"

#include <algorithm>

namespace chaos {

namespace {
constexpr int step_period_ms = 5;
}

controller::controller(const plcsim::project& original, uint32_t step_scale,
                       faultproxy::proxy::event_sink proxy_events,
                       faultproxy::proxy::reply_sink replies)
    : programs_{original, changed_program(original)}, step_scale_(step_scale) {
  for (int p = 0; p < 2; ++p) {
    for (std::size_t t = 0; t < tags().size(); ++t) {
      for (std::size_t k = 0; k < tags()[t].elements; ++k) {
        uint16_t block = 0;
        uint32_t offset = 0;
        if (!element_location(programs_[p], tags()[t], k, block, offset)) continue;
        regions_[{p, t, k}] = history_.watch(block, offset, tags()[t].element_size);
      }
    }
  }
  sim_ = std::make_unique<plcsim::server>(programs_[0]);
  history_.attach(*sim_);
  timeline_.push_back({clock::now(), 0});
  if (!sim_->start_on_free_loopback()) return;
  proxy_ = std::make_unique<faultproxy::proxy>(sim_->address(), sim_->port());
  proxy_->on_event(std::move(proxy_events));
  proxy_->on_reply(std::move(replies));
  started_ = proxy_->start_on_free_loopback();
  step_program(0);
}

controller::~controller() {
  stepper_.reset();
  if (proxy_) proxy_->stop();
  sim_->stop();
}

void controller::step_program(int index) {
  stepper_.reset();
  stepper_ = std::make_unique<plcsim::value_stepper>(
      *sim_, stepped_values(programs_[index], step_scale_), step_period_ms);
}

void controller::restart() {
  ++restarts_;
  sim_->restart();
}

// The stepper stops first, so that no step of the old program's places lands in the new
// program's memory.
void controller::download() {
  ++downloads_;
  const int next = 1 - program();
  stepper_.reset();
  {
    std::lock_guard<std::mutex> lock(mu_);
    timeline_.push_back({clock::now(), next});
  }
  sim_->load_program(programs_[next]);
  step_program(next);
}

int controller::program() const {
  std::lock_guard<std::mutex> lock(mu_);
  return timeline_.back().second;
}

std::vector<int> controller::programs_between(clock::time_point from, clock::time_point to) const {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<int> out;
  for (std::size_t i = 0; i < timeline_.size(); ++i) {
    const bool started = timeline_[i].first <= to;
    const bool still = i + 1 == timeline_.size() || timeline_[i + 1].first >= from;
    if (started && still && std::find(out.begin(), out.end(), timeline_[i].second) == out.end())
      out.push_back(timeline_[i].second);
  }
  return out;
}

std::vector<bytes> controller::held(int program, std::size_t tag, std::size_t k,
                                    clock::time_point from, clock::time_point to) const {
  const auto region = regions_.find({program, tag, k});
  if (region == regions_.end()) return {};
  return history_.held_between(region->second, from, to);
}

}  // namespace chaos
