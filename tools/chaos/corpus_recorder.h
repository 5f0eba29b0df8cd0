// Seeds for the fuzz corpora from the soak's traffic: the replies of whole connections for
// the session target, single replies for the reply decoders and, behind one fixed host
// request, for the host filters. Kept in memory during the run, written at its end.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace chaos {

class corpus_recorder {
 public:
  void reply(int controller, uint64_t connection, const std::vector<uint8_t>& frame);
  // Writes at most per_target files into dir/<target>/; the number written.
  std::size_t write(const std::string& dir, std::size_t per_target) const;

 private:
  mutable std::mutex mu_;
  std::map<std::pair<int, uint64_t>, std::vector<std::vector<uint8_t>>> connections_;
  std::set<std::vector<uint8_t>> replies_;
};

}  // namespace chaos
