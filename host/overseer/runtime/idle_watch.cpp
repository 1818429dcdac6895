#include "runtime/idle_watch.h"

#include <nvhost/transport.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <utility>

namespace overseer {

struct IdleWatch::State : std::enable_shared_from_this<IdleWatch::State> {
    State(boost::asio::io_context& loop, std::function<void()> told)
        : context(loop), becameIdle(std::move(told)) {}

    void check(int markersLeft) {
        if (queued) return;
        queued = true;
        // Handlers that were queued before run before the marker; what they start is seen then.
        boost::asio::post(context, [weak = weak_from_this(), markersLeft] {
            const auto self = weak.lock();
            if (!self) return;
            self->queued = false;
            if (nv::hosting::transportOf(self->context).pending() > 0) return;
            if (markersLeft > 0) return self->check(markersLeft - 1);
            self->idle = true;
            self->becameIdle();
        });
    }

    boost::asio::io_context& context;
    std::function<void()> becameIdle;
    bool queued = false;
    bool idle = true;
};

IdleWatch::IdleWatch(boost::asio::io_context& context, std::function<void()> becameIdle)
    : state_(std::make_shared<State>(context, std::move(becameIdle))) {
    nv::hosting::transportOf(context).observeIdle([weak = std::weak_ptr<State>(state_)] {
        if (const auto state = weak.lock()) state->check(1);
    });
}

IdleWatch::~IdleWatch() {
    nv::hosting::transportOf(state_->context).observeIdle({});
}

bool IdleWatch::isIdle() const {
    return state_->idle && nv::hosting::transportOf(state_->context).pending() == 0;
}

void IdleWatch::workMayHaveStarted() {
    state_->idle = false;
    state_->check(1);
}

}  // namespace overseer
