#pragma once

#include <cstdint>
#include <utility>

namespace overseer::control {

/// Bytes of request bodies that may be held at a time, over all connections. Server's thread only.
class BodyBudget {
  public:
    /// What one request has taken; given back with the object.
    class Share {
      public:
        Share() = default;
        Share(BodyBudget& budget, std::uint64_t bytes) : budget_(&budget), bytes_(bytes) {}
        ~Share() {
            if (budget_ != nullptr) budget_->left_ += bytes_;
        }
        Share(Share&& other) noexcept { *this = std::move(other); }
        Share& operator=(Share&& other) noexcept {
            std::swap(budget_, other.budget_);
            std::swap(bytes_, other.bytes_);
            return *this;
        }
        explicit operator bool() const { return budget_ != nullptr; }

      private:
        BodyBudget* budget_ = nullptr;
        std::uint64_t bytes_ = 0;
    };

    explicit BodyBudget(std::uint64_t bytes) : left_(bytes) {}
    BodyBudget(const BodyBudget&) = delete;
    BodyBudget& operator=(const BodyBudget&) = delete;

    /// False when there is not so much left. It must outlive the share.
    Share take(std::uint64_t bytes) {
        if (bytes > left_) return {};
        left_ -= bytes;
        return {*this, bytes};
    }

  private:
    std::uint64_t left_;
};

}  // namespace overseer::control
