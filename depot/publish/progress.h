#pragma once

#include <string>

namespace depot {

/// Tells a person at a terminal how far a long step is, on one line that is written over. Where
/// standard error is no terminal it stays silent.
class Progress {
  public:
    Progress();
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(const std::string& text);
    /// Takes the line away, before something else is written.
    void clear();

  private:
    const bool terminal_;
    bool shown_ = false;
};

}  // namespace depot
