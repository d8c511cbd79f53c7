#include "UtlStatementInfo.h"

#include <cstring>

namespace utl {

StatementInfo const StatementInfo::INVALID("", "", 0, 0);

bool StatementInfo::operator==(StatementInfo const& other) const {
    return std::strcmp(mFile, other.mFile) == 0 && std::strcmp(mFunction, other.mFunction) == 0 &&
           mLine == other.mLine && mSub == other.mSub;
}

}  // namespace utl
