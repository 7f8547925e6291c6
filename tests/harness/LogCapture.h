#ifndef VELTO_TEST_LOG_CAPTURE_H
#define VELTO_TEST_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace velto {
namespace test {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

// In-process capture of everything written through the platform log. The test
// main installs it; set VELTO_TEST_LOG=1 to also echo the lines to stderr.
class LogCapture {
public:
    static void install();
    static void clear();
    static std::vector<LogLine> lines();

    // Lines whose message contains `text`; a priority of 0 or a null tag match any.
    static size_t count(const std::string& text, int priority = 0, const char* tag = nullptr);
    static bool contains(const std::string& text, int priority = 0, const char* tag = nullptr) {
        return count(text, priority, tag) > 0;
    }
    // Index of the first matching line at or after `from`, or -1.
    static long find(const std::string& text, size_t from = 0);
    // All captured lines, one per row, for failure messages.
    static std::string dump();
};

// Clears the capture when a test starts using it.
struct ScopedLogCapture {
    ScopedLogCapture() { LogCapture::clear(); }
};

}  // namespace test
}  // namespace velto

#endif  // VELTO_TEST_LOG_CAPTURE_H
