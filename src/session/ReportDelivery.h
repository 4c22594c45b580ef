// Hands reports to the caller's callback on a thread of its own, in arrival
// order. The receiver only queues them, so a callback may take its time and
// may call any operation of the session, even ones that wait for the
// receiver to read their answer. Internal.
#ifndef TARVEL_SESSION_REPORT_DELIVERY_H
#define TARVEL_SESSION_REPORT_DELIVERY_H

#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

#include "TarvelBase.h"

namespace tarvel {
namespace session {

class ReportDelivery {
public:
    using Callback = std::function<void(const TarvelReport&)>;
    // Reports waiting for a slow callback; beyond this the oldest go.
    static constexpr std::size_t kBacklog = 65536;

    ReportDelivery();
    ~ReportDelivery();
    ReportDelivery(const ReportDelivery&) = delete;
    ReportDelivery& operator=(const ReportDelivery&) = delete;

    // Replaces the callback (empty: none; reports still waiting go). Once it
    // returns, the old callback is not running and won't be called again,
    // except when the call comes from inside the callback itself.
    void set(Callback callback);
    bool active() const;
    // Queues a report for the callback: the number of reports dropped to
    // make room (0 or 1; 0 also without a callback).
    std::size_t deliver(const TarvelReport& report);
    // True on the thread that runs the callback.
    bool onDeliveryThread() const;

private:
    struct Shared;
    static void run(std::shared_ptr<Shared> shared);

    std::shared_ptr<Shared> m_shared; // the thread keeps it alive on its own
    std::thread m_thread;
};

} // namespace session
} // namespace tarvel

#endif
