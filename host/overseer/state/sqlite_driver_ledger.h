#pragma once

#include "state/database.h"
#include "state/driver_ledger.h"

namespace overseer {

/// The record of driver files in the database. I/O thread only.
class SqliteDriverLedger : public DriverLedger {
  public:
    /// `database` outlives it.
    explicit SqliteDriverLedger(Database& database) : database_(database) {}
    Result<std::optional<DriverRecord>> find(const std::string& fileName) override;
    Result<> store(const DriverRecord& record) override;
    /// In ascending order of names.
    Result<std::vector<DriverRecord>> all() override;

  private:
    Database& database_;
};

}  // namespace overseer
