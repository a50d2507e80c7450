// Message output: the catalogue lookup in front of the message table, and
// the print routines every part of the numerical library speaks through.
//
// The print and lookup buffers are shared and unlocked, and so is the
// first-use of the catalogue: messages are printed from one thread.
#include "service/messages.h"

#include <nl_types.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "service/message_table.h"
#include "service/strings.h"

namespace {

constexpr int kDestStderr = 1;
constexpr std::size_t kTextBuffer = 512;
constexpr const char* kCatalogName = "tarn_msg.cat";
constexpr int kCatalogSet = 1;
// LANG is read into a buffer of this size, and at most one byte less of it
// is tried again without its codeset.
constexpr int kLangBuffer = 64;

// Catalogue state: one way from first use to table or catalogue.
int catalog_first_use = 1;
int catalog_use_builtin = 1;
nl_catd catalog_handle = reinterpret_cast<nl_catd>(-1);

// Shared by tarn_serv_print, tarn_serv_format_print and
// tarn_serv_file_format_print.
char print_buffer[kTextBuffer];
// tarn_serv_get_msg's formatted texts.
char lookup_buffer[kTextBuffer];

const nl_catd kCatalogFailed = reinterpret_cast<nl_catd>(-1);

void open_catalog_once() {
    if (catalog_first_use == 0) return;
    catalog_first_use = 0;
    catalog_handle = catopen(kCatalogName, 0);
    if (catalog_handle == kCatalogFailed) {
        // A locale such as de_DE.UTF-8 is retried as de_DE; the cut LANG
        // stays in force for the rest of the process.
        char lang[kLangBuffer];
        std::memset(lang, 0, sizeof(lang));
        tarn_serv_getenv("LANG", lang, kLangBuffer);
        if (lang[0] != '\0') {
            char cut[kLangBuffer];
            std::memcpy(cut, lang, kLangBuffer - 1);
            cut[kLangBuffer - 1] = '\0';
            if (char* dot = std::strchr(cut, '.'); dot != nullptr) {
                *dot = '\0';
                setenv("LANG", cut, 1);
                catalog_handle = catopen(kCatalogName, 0);
            }
        }
    }
    if (catalog_handle != kCatalogFailed) catalog_use_builtin = 0;
}

const char* message_text(int id) {
    if (id < 0 || id >= kTarnMsgCount) return "";
    open_catalog_once();
    const char* text = tarn_msg_table[id].text;
    if (catalog_use_builtin != 0) return text;
    return catgets(catalog_handle, kCatalogSet, id, text);
}

// The overflow report cannot fire while lengths are measured against the
// buffer's own size; it stays as the guard of that bound.
void check_overflow(const char* buffer) {
    const int length = static_cast<int>(tarn_serv_strnlen_s(buffer, kTextBuffer));
    constexpr int kBufferSize = static_cast<int>(kTextBuffer);
    if (length - 1 > kBufferSize) {
        tarn_serv_printf_s("\nVexan TARN INTERNAL ERROR: message buffer overflow.");
        tarn_serv_printf_s("\n       Lenght: %d   Buffer size: %d\n", length - 1, kBufferSize);
        std::fflush(nullptr);
    }
}

void write_text(int dest, const char* text) {
    if (dest == kDestStderr && stderr != nullptr)
        tarn_serv_fprintf_stderr_s("%s", text);
    else
        tarn_serv_printf_s("%s", text);
    std::fflush(nullptr);
}

void format_into_print_buffer(const char* format, va_list args) {
    tarn_serv_vsprintf_s(print_buffer, kTextBuffer, format, args);
    check_overflow(print_buffer);
}

}  // namespace

extern "C" {

void tarn_serv_print(int dest, int id, int nargs, ...) {
    if (id != kTarnMsgNewline) {
        va_list args;
        va_start(args, nargs);
        format_into_print_buffer(message_text(id), args);
        va_end(args);
        write_text(dest, print_buffer);
    }
    // The closing line end comes from the table, never from a catalogue.
    tarn_serv_sprintf_s(print_buffer, kTextBuffer, "%s", tarn_msg_table[kTarnMsgNewline].text);
    check_overflow(print_buffer);
    write_text(dest, print_buffer);
}

const char* tarn_serv_get_msg(int id, int nargs, ...) {
    if (id == kTarnMsgNewline) return "";
    const char* text = message_text(id);
    if (nargs < 1) return text;
    va_list args;
    va_start(args, nargs);
    tarn_serv_vsprintf_s(lookup_buffer, kTextBuffer, text, args);
    va_end(args);
    return lookup_buffer;
}

void tarn_serv_format_print(int dest, const char* format, int nargs, ...) {
    if (nargs < 1) return;
    va_list args;
    va_start(args, nargs);
    format_into_print_buffer(format, args);
    va_end(args);
    write_text(dest, print_buffer);
}

void tarn_serv_file_format_print(FILE* stream, const char* format, int nargs, ...) {
    if (nargs < 1) return;
    va_list args;
    va_start(args, nargs);
    tarn_serv_vsprintf_s(print_buffer, kTextBuffer, format, args);
    va_end(args);
    tarn_serv_fprintf_s(stream, "%s", print_buffer);
}

}  // extern "C"
