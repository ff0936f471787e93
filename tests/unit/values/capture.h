/* Helpers of the values tests: a memory stream and stderr capture. */
#ifndef TARVOCON_VALUES_TEST_CAPTURE_H
#define TARVOCON_VALUES_TEST_CAPTURE_H

#include <stdio.h>
#include <stdlib.h>

#include <string>

/* A FILE * whose output can be read back as a string. */
class MemStream {
  public:
    MemStream() { stream_ = open_memstream(&buffer_, &size_); }
    ~MemStream()
    {
        fclose(stream_);
        free(buffer_);
    }
    MemStream(const MemStream &) = delete;
    MemStream &operator=(const MemStream &) = delete;
    FILE *get() { return stream_; }
    std::string str()
    {
        fflush(stream_);
        return std::string(buffer_, size_);
    }

  private:
    char *buffer_ = nullptr;
    size_t size_ = 0;
    FILE *stream_ = nullptr;
};

#endif
