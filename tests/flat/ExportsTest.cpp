// All exports, from the list that the header gives.

#include "Host.h"
#include "InC.h"

namespace {

#define FLAT_EXPORT(name) #name,
constexpr const char *names[] = {
#include "Exports.inc"
};
#undef FLAT_EXPORT

enum class Given { Something, Null };

template <class T> T sample(Given given)
{
    if constexpr (std::is_arithmetic_v<T>) {
        return T(1);
    } else {
        if (given == Given::Null)
            return nullptr;
        if constexpr (std::is_same_v<T, const char *>) {
            return "text";
        } else if constexpr (std::is_function_v<std::remove_pointer_t<T>>) {
            return Host();
        } else {
            static const std::remove_const_t<std::remove_pointer_t<T>> record{};
            return &record;
        }
    }
}

template <class Result, class... Arguments>
Result call(Result (*function)(VelmoraCloudAPI *, Arguments...), VelmoraCloudAPI *api, [[maybe_unused]] Given given)
{
    return function(api, sample<Arguments>(given)...);
}
VelmoraCloudAPI *call(VelmoraCloudAPI *(*)(), VelmoraCloudAPI *, Given) { return nullptr; }

TEST(ExportsTest, NullHandle_DoesNothing_ReturnsNothing)
{
    const auto zero = [](const char *name, auto function) {
        Host<>::heard.clear();
        testing::internal::CaptureStdout();
        if constexpr (std::is_void_v<decltype(call(function, nullptr, Given::Something))>)
            call(function, nullptr, Given::Something);
        else
            EXPECT_FALSE(call(function, nullptr, Given::Something)) << name;
        settle();
        EXPECT_EQ(Host<>::heard.size(), 0U) << name;
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  std::string(name) == "submitNewJob_Json" ? "\ne\ne\ne\ne\ne\ne\ne\ne\n" : "")
            << name;
    };
#define FLAT_EXPORT(name) zero(#name, &name);
#include "Exports.inc"
#undef FLAT_EXPORT
}

TEST(ExportsTest, NullTextsRecordsAndCallbacks_AreTaken)
{
    const VelmoraPortal::Portal portal;
    const ScopedTrust trust(QByteArray::fromStdString(portal.caPem()));
    const ScopedEnvironment address("VELMORA_API_URL", QByteArray::fromStdString(portal.host()));
    VelmoraCloudAPI *api = CreateCloudAPI();
    const auto nulls = [api](auto function) { call(function, api, Given::Null); };
#define FLAT_EXPORT(name) std::string(#name) == "DestroyCloudAPI" ? void() : nulls(&name);
    testing::internal::CaptureStdout();
#include "Exports.inc"
#undef FLAT_EXPORT
    EXPECT_TRUE(
        waitUntil([&] { return portal.requestCount("auth/login") == 2 && portal.requestCount("tag/job") == 4; }));
    logUserIn(api, "ada.field@velmora.example", "turbulence-42", nullptr, nullptr);
    EXPECT_TRUE(waitUntil([&] { return isUserLoggedIn(api); }));
    DestroyCloudAPI(api);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "api->logUserIn()\napi->logUserIn()\n\ne\ne\ne\ne\ne\ne\ne\ne\napi->logUserIn()\n");
}

TEST(ExportsTest, C_SeesTheSameFunctionsAndLayouts)
{
    EXPECT_EQ(std::size(names), 59U);
    const FlatAddress here[] = {
#define FLAT_EXPORT(name) reinterpret_cast<FlatAddress>(&name),
#include "Exports.inc"
#undef FLAT_EXPORT
    };
    for (std::size_t i = 0; i < std::size(here); ++i)
        EXPECT_EQ(flatAddressesInC[i], here[i]) << names[i];
    const std::size_t layout[] = FLAT_LAYOUT;
    for (std::size_t i = 0; i < std::size(layout); ++i)
        EXPECT_EQ(flatLayoutInC[i], layout[i]) << i;
}

} // namespace
