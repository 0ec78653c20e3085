#pragma once

#include <QString>

#include <atomic>
#include <vector>

namespace Velmora {

struct JoinResult {
    bool joined = false;
    QString renameProblem; ///< the joined file is complete, but could not take the target's place
};

/// Appends the pieces to `growing` in this order and removes each piece that has been appended. Then `growing` takes
/// the place of `target` in one step. When joining fails, or `stop` is set, `growing` is removed. Blocks; for pool
/// threads.
JoinResult joinPieces(const std::vector<QString> &pieces, const QString &growing, const QString &target,
                      const std::atomic<bool> &stop);

} // namespace Velmora
