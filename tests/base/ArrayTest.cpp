#include "base/Array.h"

#include "support/ExpectThrows.h"

#include <vector>

TEST(Array, EditsKeepOrderAndBadIndicesThrowBeforeAnythingChanges) {
    Array<int> a;
    for (int v : {10, 20, 30})
        a.append(v);
    a.insert(15, 1);
    a.insert(40, 4);
    a.remove(0);
    a.remove(9); // at or past the last: removes the last
    EXPECT_EQ((std::vector<int>{15, 20, 30}), std::vector<int>(a.begin(), a.end()));
    EXPECT_EQ(3, a.getCapacity());
    expectThrows<BadIndexException>([&] { a[3]; }, "Array::operator[]");
    expectThrows<BadIndexException>([&] { a[-1]; }, "Array::operator[]");
    expectThrows<BadIndexException>([&] { a.insert(7, 4); }, "Array::operator[]");
    expectThrows<BadIndexException>([&] { a.remove(-1); }, "Array::operator[]");
    expectThrows<IllegalArgumentException>([&] { a.resize(-1); }, "Array::resize");
    EXPECT_EQ(3, a.getCount());
    a.clear();
    expectThrows<IllegalArgumentException>([&] { a.remove(0); }, "Array::resize");
}
