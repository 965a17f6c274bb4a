/* Maps a physical window through /dev/mem the way the collector does and
 * prints 32-bit registers from it: mem-window BASE SIZE OFFSET...
 * On ARM, read() on /dev/mem only reaches RAM; registers need mmap. */
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: %s BASE SIZE OFFSET...\n", argv[0]);
        return 2;
    }
    off_t base = (off_t)strtoul(argv[1], NULL, 0);
    size_t size = strtoul(argv[2], NULL, 0);
    int fd = open("/dev/mem", O_RDONLY | O_SYNC);
    if (fd < 0) {
        perror("open /dev/mem");
        return 1;
    }
    volatile const uint8_t* p = mmap(NULL, size, PROT_READ, MAP_SHARED, fd, base);
    if (p == MAP_FAILED) {
        perror("mmap /dev/mem");
        return 1;
    }
    for (int i = 3; i < argc; ++i) {
        size_t off = strtoul(argv[i], NULL, 0);
        if (off + 4 > size) {
            fprintf(stderr, "offset %s outside the window\n", argv[i]);
            return 2;
        }
        printf("0x%08lx 0x%08x\n", (unsigned long)(base + off), *(volatile const uint32_t*)(p + off));
    }
    return 0;
}
