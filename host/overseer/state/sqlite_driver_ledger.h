#pragma once

#include <map>
#include <string>
#include <vector>

#include "state/database.h"
#include "state/driver_ledger.h"

namespace overseer {

/// The record of driver files in the database, read once and kept in memory: an answer of the
/// catalogue asks for a version with each document, and may hold a hundred thousand. I/O thread
/// only.
class SqliteDriverLedger : public DriverLedger {
  public:
    /// `database` outlives it.
    explicit SqliteDriverLedger(Database& database) : database_(database) {}
    Result<std::optional<DriverRecord>> find(const std::string& fileName) override;
    Result<> store(const DriverRecord& record) override;
    /// In ascending order of names.
    Result<std::vector<DriverRecord>> all() override;

  private:
    Result<> readAll();

    Database& database_;
    bool read_ = false;
    std::map<std::string, DriverRecord> records_;
};

}  // namespace overseer
