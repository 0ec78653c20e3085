// Views and callback adapters, field by field.

#include "Host.h"

#include "api/flat/Adapters.h"

namespace {

/// Gives every field a value of its own; `seed` tells flags apart: over four of them any two differ once.
template <class T> void fill(T &value, int &position, int seed)
{
    ++position;
    if constexpr (std::is_same_v<T, std::string>) {
        value = "text " + std::to_string(position) + " \u00fc";
    } else if constexpr (std::is_same_v<T, bool>) {
        value = ((position >> seed) & 1) != 0;
    } else if constexpr (std::is_same_v<T, long long>) {
        value = 5000000000LL + position;
    } else if constexpr (std::is_arithmetic_v<T>) {
        value = T(position) + T(0.25);
    } else if constexpr (Detail::IsList<T>::value) {
        value.resize(2);
        for (auto &element : value)
            fill(element, position, seed);
    } else {
        forEachField<T>([&](const auto &field) { fill(value.*field.member, position, seed); });
    }
}

template <class Record> class ViewsTest : public testing::Test {
};
using Records =
    testing::Types<ApiError, CloudFile, FileDownloadDetails, FileUploadDetails, DeleteFileDetails, ItemTag, UserDetails,
                   AccountDetails, AccountTransaction, AccountBalance, JobDetails, JobProgress, SimulationAbortState>;
TYPED_TEST_SUITE(ViewsTest, Records);

TYPED_TEST(ViewsTest, HoldsEveryFieldOfTheRecord)
{
    TypeParam record{};
    for (int seed = 0; seed < 5; ++seed) {
        int position = 0;
        fill(record, position, seed);
        EXPECT_EQ(writeRecord(recordOf(toView(record)), Form::Reply), writeRecord(record, Form::Reply));
    }
}

TEST(AdapterTest, ProgressIsCutToItsLow32Bits)
{
    const FileUploadDetails file{"a", "b", 5000000000};
    CloudAPI::UploadProgress adapter;
    for (const auto &[bytes, cut] : {std::pair(5000000000LL, "705032704"), std::pair(2147483648LL, "-2147483648")}) {
        void (*views)(const VelmoraFileUploadDetailsView *, std::int32_t) = Host();
        Flat::adapt<Flat::Plain>(adapter, views);
        adapter(file, bytes);
        void (*texts)(const char *, std::int32_t) = Host<1>();
        Flat::adapt<Flat::Json>(adapter, texts);
        adapter(file, bytes);
        EXPECT_EQ(Host<>::last(), (std::vector<std::string>{hostText(file), cut}));
        EXPECT_EQ(Host<1>::last(), Host<>::last());
    }
}

} // namespace
