#include "zkfs/test/Call.hpp"

#include "zkfs/test/LiveArrays.hpp"

#include "qfs/Library.hpp"
#include "qfs/Session.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace zkfs::test {

qfs::Json call(std::string_view statement) {
    static const qfs::Library library(qfs::Library::defaultPath());
    std::ostringstream out;
    std::ostringstream err;
    {
        const LiveArrayGuard guard;
        qfs::Session(library, out, err, true).run(statement);
    }
    qfs::Json answer = qfs::Json::parse(out.str(), nullptr, false);
    if (answer.is_discarded()) ADD_FAILURE() << statement << ": qfs wrote " << out.str() << err.str();
    return answer;
}

}  // namespace zkfs::test
