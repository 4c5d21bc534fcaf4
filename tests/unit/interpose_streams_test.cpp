// One hook answers for reading, and one for writing, whether by streams or by descriptors.
#include "interpose.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace
{

class InterposeStreams : public testing::Test
{
protected:
    InterposeStreams()
    {
        dir.write("file", "one\ntwo\n");
        stream = std::fopen((dir / "file").c_str(), "r+");
    }
    ~InterposeStreams() override { std::fclose(stream); }

    TempDir dir;
    FILE* stream = nullptr;
};

// Each way to read ends with an error of the stream; then all there is can be read.
TEST_F(InterposeStreams, ReadingFails)
{
    char bytes[10];
    char* line = nullptr;
    std::size_t size = 0;
    int failures = 0;
    const auto expect_failure = [&](bool failed) {
        EXPECT_TRUE(failed) << failures;
        EXPECT_EQ(errno, EIO);
        EXPECT_NE(std::ferror(stream), 0);
        std::clearerr(stream);
        errno = 0;
        ++failures;
    };
    {
        const auto hook = interpose::on_read.fails(EIO);
        expect_failure(std::fgets(bytes, sizeof(bytes), stream) == nullptr);
        expect_failure(std::fgetc(stream) == EOF);
        expect_failure(getc(stream) == EOF);
        expect_failure(getline(&line, &size, stream) == -1);
        expect_failure(getdelim(&line, &size, '\n', stream) == -1);
        expect_failure(std::fread(bytes, 1, sizeof(bytes), stream) == 0);
        EXPECT_EQ(read(fileno(stream), bytes, sizeof(bytes)), -1);
        EXPECT_EQ(pread(fileno(stream), bytes, sizeof(bytes), 0), -1);
        EXPECT_EQ(hook.calls(), failures + 2);
    }
    free(line);
    EXPECT_EQ(std::fread(bytes, 1, sizeof(bytes), stream), 8U);
}

TEST_F(InterposeStreams, ReadingIsAskedForOncePerLineAndAtTheEnd)
{
    const auto hook = interpose::on_read.watch();
    char line[10];
    while (std::fgets(line, sizeof(line), stream) != nullptr) {
    }
    EXPECT_EQ(hook.calls(), 3);
    std::rewind(stream);
    while (std::fgetc(stream) != EOF) {
    }
    EXPECT_EQ(hook.calls(), 6);
}

TEST_F(InterposeStreams, ReadingFindsTheEnd)
{
    const auto hook = interpose::on_read.returns(0);
    EXPECT_EQ(std::fgetc(stream), EOF);
    EXPECT_NE(std::feof(stream), 0);
    EXPECT_EQ(std::ferror(stream), 0);
}

TEST_F(InterposeStreams, WritingFails)
{
    int failures = 0;
    const auto expect_failure = [&](bool failed) {
        EXPECT_TRUE(failed) << failures;
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_NE(std::ferror(stream), 0);
        std::clearerr(stream);
        errno = 0;
        ++failures;
    };
    {
        const auto hook = interpose::on_write.fails(ENOSPC);
        expect_failure(std::fputs("text", stream) == EOF);
        expect_failure(std::fputc('x', stream) == EOF);
        expect_failure(std::fwrite("text", 1, 4, stream) == 0);
        expect_failure(std::fprintf(stream, "%d", 1) < 0);
        expect_failure(std::fflush(stream) == EOF);
        EXPECT_EQ(write(fileno(stream), "text", 4), -1);
        EXPECT_EQ(hook.calls(), failures + 1);
    }
    EXPECT_EQ(dir.read("file"), "one\ntwo\n");
}

TEST_F(InterposeStreams, WhatIsClosedIsClosedWhateverTheAnswer)
{
    const int descriptor = dup(fileno(stream));
    FILE* const other = fdopen(dup(descriptor), "r");
    const int others = fileno(other);
    const auto hook = interpose::on_close.fails(EIO);
    EXPECT_EQ(close(descriptor), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(std::fclose(other), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    EXPECT_EQ(fcntl(others, F_GETFD), -1);
    EXPECT_EQ(close(descriptor), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(hook.calls(), 2) << "what is not open is not asked for";
}

} // namespace
