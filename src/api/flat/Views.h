#pragma once

#include "model/Json.h"

#include <velmora/CloudAPIFlat.h>

namespace Velmora {

// The view of each record; declared only.
VelmoraApiErrorView viewOf(const ApiError &);
VelmoraCloudFileView viewOf(const CloudFile &);
VelmoraFileDownloadDetailsView viewOf(const FileDownloadDetails &);
VelmoraFileUploadDetailsView viewOf(const FileUploadDetails &);
VelmoraDeleteFileDetailsView viewOf(const DeleteFileDetails &);
VelmoraItemTagView viewOf(const ItemTag &);
VelmoraUserDetailsView viewOf(const UserDetails &);
VelmoraAccountAccessView viewOf(const AccountAccess &);
VelmoraAccountDetailsView viewOf(const AccountDetails &);
VelmoraAccountTransactionView viewOf(const AccountTransaction &);
VelmoraAccountBalanceView viewOf(const AccountBalance &);
VelmoraHpcDetailsView viewOf(const HpcDetails &);
VelmoraJobStatusEntryView viewOf(const JobStatusEntry &);
VelmoraSimulationStatusEntryView viewOf(const SimulationStatusEntry &);
VelmoraSimulationDetailsView viewOf(const SimulationDetails &);
VelmoraJobDetailsView viewOf(const JobDetails &);
VelmoraSimulationProgressView viewOf(const SimulationProgress &);
VelmoraJobProgressView viewOf(const JobProgress &);
VelmoraSimulationAbortStateView viewOf(const SimulationAbortState &);

/// Initialises a field of exactly this type, where a bare value would also initialise a wider one.
template <class T> struct Exactly {
    T value;
    template <class Field, class = std::enable_if_t<std::is_same_v<Field, T>>> operator Field() &&
    {
        return std::move(value);
    }
};

/// Converts to anything, which shows whether a view has one more field.
struct AnyValue {
    template <class T> operator T() const;
};
template <class View, class = void, class... Values> struct IsInitialisable : std::false_type {
};
template <class View, class... Values>
struct IsInitialisable<View, std::void_t<decltype(View{std::declval<Values>()...})>, Values...> : std::true_type {
};

/// The form of a value in a view. A text becomes a pointer to its characters, a list becomes a list of the forms of its
/// elements, a record becomes its view, initialised in the order of the record's field table. Points into the value.
template <class T> auto toView(const T &value)
{
    if constexpr (std::is_same_v<T, std::string>) {
        return value.c_str();
    } else if constexpr (std::is_arithmetic_v<T>) {
        return value;
    } else if constexpr (Detail::IsList<T>::value) {
        std::list<decltype(toView(value.front()))> views;
        for (const auto &element : value)
            views.push_back(toView(element));
        return views;
    } else {
        using View = decltype(viewOf(value));
        return std::apply(
            [&value](const auto &...each) {
                static_assert(!IsInitialisable<View, void, decltype(toView(value.*each.member))..., AnyValue>::value,
                              "the view has a field that its record lacks");
                return View{Exactly<decltype(toView(value.*each.member))>{toView(value.*each.member)}...};
            },
            Schema<T>::fields());
    }
}

} // namespace Velmora
