#include "UtlStatementInfo.h"

#include <cstring>
#include <new>

#include "foundation/UtlImmortal.h"

namespace utl {

namespace {

Immortal<StatementInfo> invalid;

UTL_BEFORE_ALL_CONSTRUCTORS void makeInvalid() {
    new (invalid.bytes) StatementInfo("", "", 0, 0);
}

}  // namespace

StatementInfo const& StatementInfo::INVALID = reinterpret_cast<StatementInfo const&>(invalid.bytes);

bool StatementInfo::operator==(StatementInfo const& other) const {
    return std::strcmp(mFile, other.mFile) == 0 && std::strcmp(mFunction, other.mFunction) == 0 &&
           mLine == other.mLine && mSub == other.mSub;
}

}  // namespace utl
