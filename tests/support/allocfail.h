// Allocation failure at every site of one call whose input must be made
// first, with no fault armed: for n = 1, 2, ... a fresh input from setup(),
// then run(input) with its nth allocation failing, then check(input, result,
// reached); ends at the first n whose fault run() did not reach, and returns
// the number of sites. Each round must leak nothing.
#pragma once

#include "dibimages.h"

namespace tovtest {

template <class Setup, class Run, class Check>
long ForEachFailureAfterSetup(Setup setup, Run run, Check check) {
    return ForEachAllocationSite([&](long n) {
        SCOPED_TRACE(testing::Message() << "failing allocation " << n);
        LeakGuard guard;
        auto input = setup();
        bool reached = false;
        auto result = WithAllocationFailure(n, &reached, [&] { return run(input); });
        check(input, result, reached);
        return reached;
    });
}

}  // namespace tovtest
