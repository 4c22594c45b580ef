// A session on the test's fake device, reading directly or with the receiver,
// that must leave the process as it found it: no descriptor or thread left.
#ifndef TARVEL_TEST_FAKE_DEVICE_SESSION_H
#define TARVEL_TEST_FAKE_DEVICE_SESSION_H

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

#include "FakeDevice.h"
#include "ProcessCounts.h"
#include "TarvelAPI.h"

class FakeDeviceSession {
protected:
    // Before the device exists, so that its threads are not counted as ours.
    void countBefore() { before_ = ProcessCounts::baseline(); }

    void connect(bool receiver, unsigned readTimeoutMs, unsigned answerWaitMs) {
        tarvel_ = std::make_unique<Tarvel>();
        tarvel_->ClearPrintStream();
        tarvel_->SetPrintStream(err_, TARVEL_ERR);
        ASSERT_EQ(0, tarvel_->Connect(device_->path(), readTimeoutMs, 1000)) << err_.str();
        if (receiver) {
            ASSERT_EQ(0, tarvel_->SetAnswerWait(answerWaitMs));
            ASSERT_EQ(0, tarvel_->StartReceiver());
        }
    }

    void closeAndCount() {
        tarvel_.reset();
        device_.reset();
        EXPECT_TRUE(ProcessCounts::settlesTo(before_))
            << "before: " << before_.text() << "; after: " << ProcessCounts::now().text();
    }

    ProcessCounts before_;
    std::ostringstream err_; // before the session: its printer refers to it
    std::unique_ptr<FakeDevice> device_;
    std::unique_ptr<Tarvel> tarvel_;
};

#endif
