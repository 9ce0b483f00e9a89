// Command runners over popen, with the command built in a heap buffer of
// exactly its formatted size.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <vxutil/process.h>

namespace {

// The formatted command in a malloc'ed buffer of exactly its size; the
// length is 0 or less for empty text, a failed format or no format, and the buffer is
// null then or when memory is short.
class formatted_command {
public:
    __attribute__((format(printf, 2, 0))) formatted_command(const char *fmt, va_list ap)
    {
        if (!fmt)
            return;
        va_list measure;
        va_copy(measure, ap);
        length_ = vsnprintf(nullptr, 0, fmt, measure);
        va_end(measure);
        if (length_ <= 0)
            return;
        text_ = static_cast<char *>(malloc(static_cast<size_t>(length_) + 1));
        if (text_)
            (void)vsnprintf(text_, static_cast<size_t>(length_) + 1, fmt, ap);
    }
    formatted_command(const formatted_command &) = delete;
    formatted_command &operator=(const formatted_command &) = delete;
    ~formatted_command() { release(); }

    int length() const { return length_; }
    const char *text() const { return text_; }
    void release()
    {
        free(text_);
        text_ = nullptr;
    }

private:
    int length_ = 0;
    char *text_ = nullptr;
};

// Nothing is ever written to the command's input: closing the pipe at once
// hands it end-of-file.
__attribute__((format(printf, 1, 0))) int run_with_closed_input(const char *fmt, va_list ap)
{
    formatted_command cmd(fmt, ap);
    if (cmd.length() <= 0)
        return 0;
    if (!cmd.text())
        return -1;
    FILE *pipe = popen(cmd.text(), "we");
    if (!pipe)
        return -1;
    cmd.release();
    pclose(pipe);
    return 0;
}

__attribute__((format(printf, 3, 0))) int run_capturing(char *buf, int len, const char *fmt,
                                                        va_list ap)
{
    if (len < 0 || (!buf && len > 0))
        return -1;
    formatted_command cmd(fmt, ap);
    if (cmd.length() <= 0 || !cmd.text())
        return -1;
    FILE *pipe = popen(cmd.text(), "re");
    if (!pipe)
        return -1;
    const size_t got = fread(buf, 1, static_cast<size_t>(len), pipe);
    cmd.release();
    // Output beyond len is left unread; the command meets a closed pipe.
    pclose(pipe);
    return static_cast<int>(got);
}

}  // namespace

extern "C" {

VXU_API int vxu_os_system(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int rc = run_with_closed_input(fmt, ap);
    va_end(ap);
    return rc;
}

// The second name of the same runner.
VXU_API int vexmar_do_system_call(const char *fmt, ...) __attribute__((alias("vxu_os_system")));

VXU_API int vxu_os_system_ex(char *buf, int len, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int rc = run_capturing(buf, len, fmt, ap);
    va_end(ap);
    return rc;
}

}  // extern "C"
