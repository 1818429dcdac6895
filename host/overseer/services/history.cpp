#include "services/history.h"

namespace overseer {

Result<HistoryRecord> History::record(const std::string& agent, const HistoryEvent& event) {
    HistoryRecord record{0,
                         toUtcMilliseconds(clock_->wallTime()),
                         agent,
                         event.text,
                         event.category,
                         event.subcategory,
                         event.result};
    const Result<std::int64_t> id = store_.add(record);
    if (id) record.id = *id;
    for (const Observer& observer : observers_) observer(record);
    if (!id) return tl::unexpected(id.error());
    return record;
}

}  // namespace overseer
