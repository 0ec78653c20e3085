#include "Torture.h"

#include "support/Parts.h"

using namespace Velmora;

namespace Torture {

const std::vector<Action> &actions()
{
    static const std::vector<Action> all = {
        {"nothing", [](Case &, const Step &) {}, false},
        {"cancel",
         [](Case &test, const Step &) {
             for (std::size_t i = 0; i < test.cancels.size() && test.api; ++i)
                 test.cancels[i]();
         }},
        {"unsubscribe",
         [](Case &test, const Step &) {
             for (const string &each : {string(storedJob), test.job}) {
                 test.api->unsubscribeFromJob(each);
                 test.mute(each);
             }
         }},
        {"log out", // ends subscriptions too
         [](Case &test, const Step &) {
             test.api->clearActiveAccount();
             for (const string &each : {string(storedJob), test.job})
                 test.mute(each);
         }},
        {"log in", [](Case &test, const Step &) { operations()[0].start(test); }},
        {"change portal", // VELMORA_API_URL wins over it
         [](Case &test, const Step &) { test.api->setAPIPortal(PortalTarget::Test); }, false},
        {"destroy", [](Case &test, const Step &) { test.destroy(); }},
        {"again", [](Case &test, const Step &step) { step.operation->start(test); }},
        {"nested loop",
         [](Case &test, const Step &) {
             QEventLoop loop;
             QTimer::singleShot(int(test.random.below(60)), &loop, &QEventLoop::quit);
             loop.exec();
         },
         false},
        {"block", [](Case &test, const Step &) { QThread::msleep(test.random.below(100)); }, false},
        {"renew", // now
         [](Case &test, const Step &) { renewalTimerOf(*test.api)->start(0); }},
        {"heartbeats", // enough to restart sockets
         [](Case &test, const Step &) {
             for (int i = 0; i < 4; ++i) {
                 if (QTimer *heartbeat = heartbeatOf(*test.api))
                     QMetaObject::invokeMethod(heartbeat, "timeout");
             }
         },
         false}};
    return all;
}

} // namespace Torture
