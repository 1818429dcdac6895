#include "drivers/restore.h"

#include "drivers/applied_packages.h"
#include "drivers/file_names.h"
#include "root/placement.h"

namespace overseer {

Result<AppliedDriver> restoreDriver(const std::string& fileName, const ControllerRoot& root,
                                    DriverLedger& ledger, DriverApplication& application) {
    if (const Result<> named = checkDriverFileName(fileName); !named) {
        return tl::unexpected<Error>(named.error());
    }
    const Result<std::optional<DriverRecord>> record = ledger.find(fileName);
    if (!record) return inContext(fileName, record.error());
    if (!*record) return failure("{} was never applied on this controller", fileName);

    const boost::filesystem::path target = driverFile(root, fileName);
    // A file that is gone, or cannot be read, is one that was never applied.
    const std::string inPlace = md5Of(target).value_or(std::string());
    const Result<boost::filesystem::path> kept = AppliedPackages(root).toRestore(**record, inPlace);
    if (!kept) return tl::unexpected<Error>(kept.error());
    if (const Result<> placed = linkInPlace(*kept, target); !placed) {
        return tl::unexpected<Error>(placed.error());
    }
    return application.apply(fileName, Occasion::kRestore);
}

}  // namespace overseer
