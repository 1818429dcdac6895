#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace support {

/// What the fakes were asked and told, in one order over all of them. An entry begins with its
/// channel, such as "log ERROR", "variable", "history", "count" or "notify"; see each fake.
class Journal {
  public:
    void add(std::string entry) { entries_.push_back(std::move(entry)); }
    const std::vector<std::string>& entries() const { return entries_; }
    /// The entries so far; the journal is empty afterwards.
    std::vector<std::string> take();
    /// The entries of these channels, in order.
    std::vector<std::string> only(std::initializer_list<std::string> channels) const;
    /// The rest of the entries that begin with `start`.
    std::vector<std::string> after(const std::string& start) const;
    bool has(const std::string& entry) const;

  private:
    std::vector<std::string> entries_;
};

}  // namespace support
