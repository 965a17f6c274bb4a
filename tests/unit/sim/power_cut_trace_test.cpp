#include <gtest/gtest.h>

#include <string>

#include "power_cut_trace.h"

namespace {

// strace's C-style strings: paths can hold any byte.
TEST(StraceStringTest, EscapesAreUndone)
{
    EXPECT_EQ(sim::Unquote(R"("q\" b\\ \n\t\r\v\f \12\101\3770 \x41\xff"...)"), "q\" b\\ \n\t\r\v\f \nA\3770 A\xff");
    EXPECT_EQ(sim::DescriptorPath(R"(3</a\76b (1)>(deleted))"), "/a>b (1)");
}

const std::string kDir = "/var/lib/lumora/crash-dump";

// A call that changes the dump directory in a way the model does not know ends the analysis, naming it; the same
// call elsewhere, a harmless one, or a failed one does not.
TEST(PowerCutTraceTest, EndsAtEveryCallItHasNoModelFor)
{
    const std::pair<std::string, std::string> cases[] = { // a call, and what ends the analysis or ""
        {"fallocate(3</root/var/lib/lumora/crash-dump/a>, 0, 0, 4096) = 0", "fallocate /var/lib/lumora/crash-dump/a"},
        {"fallocate(3</root/var/lib/lumora/crash-dump/a>, 0, 0, 4096) = -1 ENOSPC (No space left on device)", ""},
        {"mmap(NULL, 8, PROT_READ, MAP_PRIVATE, 3</root/var/lib/lumora/crash-dump/a>, 0) = 0x7f00", ""},
        {"openat(AT_FDCWD</root>, \"var/lib/lumora/crash-dump\", O_RDWR|O_TMPFILE, 0600) = 3", "openat " + kDir},
        {"renameat2(AT_FDCWD</root/var/lib/lumora/crash-dump>, \"a\", AT_FDCWD</root/var/lib/lumora/crash-dump>, "
         "\"crash-dump.info\", RENAME_EXCHANGE) = 0", "renameat2 /var/lib/lumora/crash-dump/a"},
        {"unlinkat(4</root/var/lib/lumora/crash-dump>, \"d\", AT_REMOVEDIR) = 0", "unlinkat " + kDir + "/d"},
        {"utimensat(AT_FDCWD</root/var/lib/lumora>, \"crash-dump/a\", NULL, 0) = 0", "utimensat " + kDir + "/a"},
        {"mkdir(\"d\", 0777) = 0", "mkdir /var/lib/lumora/crash-dump/d"},
        {"getrandom(\"d\", 1, 0) = 1", ""},
        {"io_uring_setup(8, {flags=0}) = 3", "io_uring_setup, whose requests the trace cannot see"},
    };
    for (const auto& [call, expected] : cases) {
        const std::string trace = "100 execve(\"/bin/sh\", [\"sh\"], 0x7f /* 1 var */) = 0\n100 chdir(\"" + kDir
            + "\") = 0\n100 " + call + "\n";
        std::string refusal;
        try {
            sim::ResolveFileOperations(sim::ParseStraceLog(trace), "/root", kDir);
        } catch (const sim::UnmodelledCall& unmodelled) {
            refusal = unmodelled.what();
        }
        EXPECT_EQ(refusal, expected.empty() ? "" : "not modelled: sh[100] " + expected) << call;
    }
}

} // namespace
