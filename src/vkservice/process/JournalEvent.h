#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

#include <utility>

namespace tarn::vkservice::process {

// What a line of the journal has beside its text, so that programs need not read that: the MESSAGE_ID of an
// event of note, and fields about it. packaging/systemd/vkservice.catalog explains each event; a test
// compares. An id never changes.
struct JournalEvent
{
    const char* mId = nullptr; // null: an ordinary line
    QList<std::pair<const char*, QString>> mFields = {};
};

namespace message {

inline constexpr auto sRunStarted = "488dd02abe824149b76c23ace496272d";
inline constexpr auto sRunSucceeded = "4740bf730d7c49cba8c108755ec30285";
inline constexpr auto sRunFailed = "4444e93d7f4042f58d80adfa6530bd3b";
inline constexpr auto sPackageInstalled = "43e2f1cac34e4bdf9e877f9912af7220";
inline constexpr auto sPackageFailed = "69224af5a53f40118eeeab33207e897e";
inline constexpr auto sServerUnusable = "c9a01555e70b42f09d677f4a4cf0c54d";
inline constexpr auto sDamageFound = "20767f4d717743658337e959b96d48eb";
inline constexpr auto sVerified = "21944179066e4f15b32246ab52755ae4";
inline constexpr auto sStoreSetAside = "d09160fc224e4281a78d094e3ccd585c";
inline constexpr auto sMailGivenUp = "3050f502c58f4e0ca5ada2576598a347";
inline constexpr auto sUpdateWaits = "18532b4951204b40b418e493e2a7b3d3";
inline constexpr auto sMetricsUnwritable = "44717191b2e74f2fa05e26f85d46d206";

} // namespace message

} // namespace tarn::vkservice::process
