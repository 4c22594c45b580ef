// Captures everything written to file descriptor 2 (stderr, std::cerr, and
// other threads' reports) while the object lives or until stop().
//
//   CaptureStderr err;
//   port.Connect("no-such-port", ...);
//   EXPECT_NE(err.text().find("CreateFile failed"), std::string::npos);
//
// The text goes to a temporary file (removed at the end), so a long capture cannot block
// the writer.
#ifndef TARVEL_TEST_CAPTURE_STDERR_H
#define TARVEL_TEST_CAPTURE_STDERR_H

#include <cstdio>
#include <string>

class CaptureStderr {
public:
    CaptureStderr();
    ~CaptureStderr();
    CaptureStderr(const CaptureStderr&) = delete;
    CaptureStderr& operator=(const CaptureStderr&) = delete;

    // Everything captured so far; capturing goes on.
    std::string text();
    // Restores stderr and returns everything captured.
    std::string stop();

private:
    std::string m_path;
    std::FILE* m_file = nullptr;
    int m_saved = -1;
};

#endif
