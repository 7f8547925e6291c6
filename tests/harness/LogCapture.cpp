#include "tests/harness/LogCapture.h"

#include <android/log.h>
#include <stdio.h>
#include <stdlib.h>

#include <mutex>

namespace velto {
namespace test {

namespace {

std::mutex gMutex;
std::vector<LogLine>* gLines = new std::vector<LogLine>();  // never freed: loggers run until exit
bool gEcho = false;

void captureLine(const struct __android_logger_data* data, const char* message) {
    LogLine line{data->priority, data->tag != nullptr ? data->tag : "", message != nullptr ? message : ""};
    if (gEcho) fprintf(stderr, "[%d %s] %s\n", line.priority, line.tag.c_str(), line.message.c_str());
    std::lock_guard<std::mutex> lock(gMutex);
    gLines->push_back(std::move(line));
}

bool matches(const LogLine& line, const std::string& text, int priority, const char* tag) {
    if (priority != 0 && line.priority != priority) return false;
    if (tag != nullptr && line.tag != tag) return false;
    return line.message.find(text) != std::string::npos;
}

}  // namespace

void LogCapture::install() {
    const char* echo = getenv("VELTO_TEST_LOG");
    gEcho = echo != nullptr && echo[0] == '1';
    __android_log_set_logger(captureLine);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines->clear();
}

std::vector<LogLine> LogCapture::lines() {
    std::lock_guard<std::mutex> lock(gMutex);
    return *gLines;
}

size_t LogCapture::count(const std::string& text, int priority, const char* tag) {
    std::lock_guard<std::mutex> lock(gMutex);
    size_t n = 0;
    for (const LogLine& line : *gLines) n += matches(line, text, priority, tag) ? 1 : 0;
    return n;
}

long LogCapture::find(const std::string& text, size_t from) {
    std::lock_guard<std::mutex> lock(gMutex);
    for (size_t i = from; i < gLines->size(); ++i) {
        if ((*gLines)[i].message.find(text) != std::string::npos) return static_cast<long>(i);
    }
    return -1;
}

std::string LogCapture::dump() {
    std::lock_guard<std::mutex> lock(gMutex);
    std::string out;
    for (const LogLine& line : *gLines) {
        out += "[" + std::to_string(line.priority) + " " + line.tag + "] " + line.message + "\n";
    }
    return out;
}

}  // namespace test
}  // namespace velto
