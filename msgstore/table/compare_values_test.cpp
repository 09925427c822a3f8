// The keys that stand for values in a sort, and text in lower case.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "msgstore/table/restriction.h"
#include "msgstore/table/text_fold.h"
#include "platform/com/bstr.h"

namespace quorvane {
namespace {

PropertyValue Real(double number)
{
    PropertyValue value = PropertyValue::Binary(PROP_TAG(PT_DOUBLE, 0x6601), &number, sizeof number);
    return value;
}

PropertyValue BinaryList(const std::vector<Bytes>& items)
{
    PropertyValue value;
    value.tag = PROP_TAG(PT_MV_BINARY, 0x6602);
    value.items = items;
    return value;
}

std::vector<PropertyValue> ValuesOfAllKinds()
{
    std::vector<PropertyValue> values;
    const LONG numbers[] = {-70000, -1, 0, 1, 300, std::numeric_limits<LONG>::max()};
    for (const LONG number : numbers)
        values.push_back(PropertyValue::Long(PR_IMPORTANCE, number));
    for (const LONGLONG number : {std::numeric_limits<LONGLONG>::min(), LONGLONG{-2}, LONGLONG{1} << 40})
        values.push_back(PropertyValue::Int64(PROP_TAG(PT_I8, 0x6603), number));
    for (const bool flag : {false, true})
        values.push_back(PropertyValue::Boolean(PROP_TAG(PT_BOOLEAN, 0x6604), flag));
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double number :
         {-infinity, -2.5, -0.0, 0.0, 1e-300, 7.0, infinity, std::numeric_limits<double>::quiet_NaN()})
        values.push_back(Real(number));
    for (const OleStringView text :
         {OLESTR(""), OLESTR("a"), OLESTR("A"), OLESTR("ab"), OLESTR("b"), OLESTR("\u00E9"),
          OLESTR("\u00C9a"), OLESTR("\uFFFD"), OLESTR("\U0001F600")})
        values.push_back(PropertyValue::Unicode(PR_SUBJECT_W, text));
    for (const FILETIME time : {FILETIME{0, 0}, FILETIME{1, 0}, FILETIME{0, 1}, FILETIME{0, 0x80000000}})
        values.push_back(PropertyValue::Time(PR_CLIENT_SUBMIT_TIME, time));
    for (const std::string_view bytes :
         {std::string_view(), std::string_view("\0", 1), std::string_view("\0\0", 2),
          std::string_view("\0\1", 2), std::string_view("\1"), std::string_view("\1\0", 2),
          std::string_view("\xFF")})
        values.push_back(PropertyValue::Binary(PR_SEARCH_KEY, bytes.data(), bytes.size()));
    for (const auto& items : {std::vector<Bytes>{}, {{}}, {{1}}, {{1}, {}}, {{1}, {0}}, {{1, 0}}, {{2}}})
        values.push_back(BinaryList(items));
    return values;
}

int SignOf(int number)
{
    return number < 0 ? -1 : (number > 0 ? 1 : 0);
}

TEST(CompareValuesTest, KeysOrderAsTheirValuesDo)
{
    const std::vector<PropertyValue> values = ValuesOfAllKinds();
    for (std::size_t i = 0; i < values.size(); ++i)
        for (std::size_t j = 0; j < values.size(); ++j)
            EXPECT_EQ(SignOf(CompareBytes(SortKey(values[i]), SortKey(values[j]))),
                      SignOf(CompareValues(&values[i], &values[j])))
                << "values " << i << " and " << j;
}

}  // namespace
}  // namespace quorvane
