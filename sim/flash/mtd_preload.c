/* A stand-in for the kernel's MTD character driver. Plain image
 * files play the devices: a file whose name has a sidecar "<image>.geometry"
 * ("erasesize writesize oobsize" followed by the indexes of the bad blocks)
 * answers the MTD requests the way the driver does; spare areas live in
 * "<image>.oob" (oobsize bytes a page; absent bytes read 0xff). An image
 * with a "<image>.ro" sidecar is write-protected: opening it for writing
 * fails with the error number the sidecar holds, EACCES when it holds none
 * (the driver's answer for a partition whose MTD_WRITEABLE flag the kernel
 * cleared; a cgroup's device policy answers EPERM, a read-only mount EROFS),
 * and the requests that change the flash fail with EPERM on a descriptor
 * opened for reading. Images are looked for in $FAKE_MTD_DIR, or
 * "/dev" when it is not set. Every other request, and every other file, goes
 * to the C library untouched.
 *
 * Loaded through the loader's preload file into the programs of a simulated
 * device, and linked straight into unit tests, whose own definition of ioctl
 * then takes the place of the C library's. */

#define _GNU_SOURCE
/* 32-bit builds: without 64-bit file offsets, readdir() gives up on a
 * directory whose entries carry 64-bit positions, as ext4 hands out to
 * 64-bit kernels' callers (an armhf test under qemu-user is one). */
#define _FILE_OFFSET_BITS 64

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <mtd/mtd-user.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

struct fake_mtd {
    char image[PATH_MAX];
    char geometry[PATH_MAX];
    char spare[PATH_MAX + sizeof ".oob"];
    uint32_t size;
    uint32_t erasesize;
    uint32_t writesize;
    uint32_t oobsize;
};

typedef int (*ioctl_function)(int, unsigned long, ...);
typedef int (*open_function)(const char*, int, ...);

static const char* image_directory(void)
{
    const char* directory = getenv("FAKE_MTD_DIR");
    return directory != NULL ? directory : "/dev";
}

/* Through a data pointer: ISO C has no cast from object to function
 * pointers. */
static void* next_symbol(const char* name, void* function, size_t size)
{
    void* symbol = dlsym(RTLD_NEXT, name);
    memcpy(function, &symbol, size);
    return symbol;
}

static int real_ioctl(int fd, unsigned long request, void* argument)
{
    static ioctl_function next;
    if (next == NULL)
        next_symbol("ioctl", &next, sizeof next);
    return next(fd, request, argument);
}

static int is_mtd_request(unsigned long request)
{
    return request == MEMGETINFO || request == MEMGETBADBLOCK || request == MEMSETBADBLOCK || request == MEMERASE
           || request == MEMREADOOB || request == MEMWRITEOOB;
}

static int fail(int error)
{
    errno = error;
    return -1;
}

/* Finds the image open on fd by comparing inodes with every image that has a
 * geometry sidecar. Returns 0 when fd is not one of them. */
static int find_image(int fd, struct fake_mtd* mtd)
{
    const char* directory = image_directory();
    struct stat opened;
    if (fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode))
        return 0;
    DIR* listing = opendir(directory);
    if (listing == NULL)
        return 0;

    int found = 0;
    const struct dirent* entry;
    while (!found && (entry = readdir(listing)) != NULL) {
        const char* suffix = strstr(entry->d_name, ".geometry");
        if (suffix == NULL || suffix[strlen(".geometry")] != '\0')
            continue;
        snprintf(mtd->geometry, sizeof mtd->geometry, "%s/%s", directory, entry->d_name);
        snprintf(mtd->image, sizeof mtd->image, "%s/%.*s", directory, (int)(suffix - entry->d_name), entry->d_name);
        snprintf(mtd->spare, sizeof mtd->spare, "%s.oob", mtd->image);
        struct stat image;
        found = stat(mtd->image, &image) == 0 && image.st_dev == opened.st_dev && image.st_ino == opened.st_ino;
    }
    closedir(listing);
    mtd->size = (uint32_t)opened.st_size;
    return found;
}

static int read_geometry(struct fake_mtd* mtd)
{
    FILE* file = fopen(mtd->geometry, "r");
    if (file == NULL)
        return 0;
    int fields = fscanf(file, "%u %u %u", &mtd->erasesize, &mtd->writesize, &mtd->oobsize);
    fclose(file);
    return fields == 3 && mtd->erasesize != 0 && mtd->writesize != 0;
}

static int is_bad(const struct fake_mtd* mtd, uint32_t block)
{
    FILE* file = fopen(mtd->geometry, "r");
    if (file == NULL)
        return 0;
    /* The geometry was read before; the bad blocks follow it. */
    unsigned index;
    int bad = 0;
    int fields = fscanf(file, "%u %u %u", &index, &index, &index);
    while (fields == 3 && !bad && fscanf(file, "%u", &index) == 1)
        bad = index == block;
    fclose(file);
    return bad;
}

static int block_request(const struct fake_mtd* mtd, unsigned long request, const loff_t* offset)
{
    if (*offset < 0 || *offset >= mtd->size)
        return fail(EINVAL);
    uint32_t block = (uint32_t)(*offset / mtd->erasesize);
    if (request == MEMGETBADBLOCK)
        return is_bad(mtd, block);
    FILE* file = fopen(mtd->geometry, "a");
    if (file == NULL)
        return fail(EIO);
    fprintf(file, " %u", block);
    fclose(file);
    return 0;
}

/* Fills [start, end) of a file with 0xff, the erased state of NAND. */
static void fill_erased(int fd, off_t start, off_t end)
{
    /* Large enough for one erase block: the images are opened with O_SYNC. */
    static unsigned char erased[256 * 1024];
    memset(erased, 0xff, sizeof erased);
    for (off_t at = start; at < end; at += (off_t)sizeof erased) {
        size_t length = (size_t)(end - at) < sizeof erased ? (size_t)(end - at) : sizeof erased;
        if (pwrite(fd, erased, length, at) < 0)
            return;
    }
}

/* Like the driver used here in production, transfers never cross into the
 * next page's spare area: longer requests are refused. */
static int spare_request(const struct fake_mtd* mtd, unsigned long request, struct mtd_oob_buf* oob)
{
    if (oob->start >= mtd->size || oob->length > mtd->oobsize)
        return fail(EINVAL);
    const off_t at = (off_t)(oob->start / mtd->writesize) * mtd->oobsize;

    if (request == MEMREADOOB) {
        memset(oob->ptr, 0xff, oob->length);
        int fd = open(mtd->spare, O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            if (pread(fd, oob->ptr, oob->length, at) < 0)
                oob->length = 0;
            close(fd);
        }
        return 0;
    }

    int fd = open(mtd->spare, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return fail(EIO);
    struct stat status;
    if (fstat(fd, &status) == 0 && status.st_size < at)
        fill_erased(fd, status.st_size, at);
    ssize_t written = pwrite(fd, oob->ptr, oob->length, at);
    close(fd);
    return written == (ssize_t)oob->length ? 0 : fail(EIO);
}

static int erase_request(int fd, const struct fake_mtd* mtd, const struct erase_info_user* erase)
{
    if (erase->length == 0 || erase->start % mtd->erasesize != 0 || erase->length % mtd->erasesize != 0
        || (uint64_t)erase->start + erase->length > mtd->size)
        return fail(EINVAL);
    for (uint32_t block = erase->start / mtd->erasesize; block < (erase->start + erase->length) / mtd->erasesize;
         ++block) {
        if (is_bad(mtd, block))
            return fail(EIO);
    }
    fill_erased(fd, erase->start, (off_t)erase->start + erase->length);

    int spare = open(mtd->spare, O_WRONLY | O_CLOEXEC);
    if (spare >= 0) {
        const off_t pages_per_block = mtd->erasesize / mtd->writesize;
        const off_t first = (off_t)(erase->start / mtd->writesize) * mtd->oobsize;
        fill_erased(spare, first, first + pages_per_block * mtd->oobsize * (erase->length / mtd->erasesize));
        close(spare);
    }
    return 0;
}

/* The error a read-write open of path fails with, 0 for none. */
static int write_refusal(const char* path)
{
    const char* directory = image_directory();
    const size_t length = strlen(directory);
    if (strncmp(path, directory, length) != 0 || path[length] != '/')
        return 0;
    char sidecar[PATH_MAX];
    if (snprintf(sidecar, sizeof sidecar, "%s.ro", path) >= (int)sizeof sidecar)
        return 0;
    FILE* file = fopen(sidecar, "r");
    if (file == NULL)
        return 0;
    int error = 0;
    if (fscanf(file, "%d", &error) != 1 || error <= 0)
        error = EACCES;
    fclose(file);
    return error;
}

/* Both entry points by their link names: with 64-bit file offsets the
 * C library's header turns every "open" in this file into "open64". One body
 * serves both, passing on to the C library's open64: O_LARGEFILE is all that
 * sets it apart, and it only lifts a limit of 2 GiB. */
int open_entry(const char* path, int flags, ...) __asm__("open");
int open64_entry(const char* path, int flags, ...) __asm__("open64") __attribute__((alias("open")));

int open_entry(const char* path, int flags, ...)
{
    static open_function next;
    if (next == NULL)
        next_symbol("open64", &next, sizeof next);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const int refusal = (flags & O_ACCMODE) != O_RDONLY ? write_refusal(path) : 0;
    if (refusal != 0)
        return fail(refusal);
    return next(path, flags, mode);
}

static int changes_flash(unsigned long request)
{
    return request == MEMSETBADBLOCK || request == MEMERASE || request == MEMWRITEOOB;
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);

    struct fake_mtd mtd;
    if (!is_mtd_request(request) || !find_image(fd, &mtd))
        return real_ioctl(fd, request, argument);
    if (!read_geometry(&mtd))
        return fail(EIO);
    if (changes_flash(request) && (fcntl(fd, F_GETFL) & O_ACCMODE) == O_RDONLY)
        return fail(EPERM);

    switch (request) {
    case MEMGETINFO: {
        struct mtd_info_user* info = argument;
        memset(info, 0, sizeof *info);
        info->type = MTD_NANDFLASH;
        info->flags = MTD_CAP_NANDFLASH;
        info->size = mtd.size;
        info->erasesize = mtd.erasesize;
        info->writesize = mtd.writesize;
        info->oobsize = mtd.oobsize;
        return 0;
    }
    case MEMGETBADBLOCK:
    case MEMSETBADBLOCK:
        return block_request(&mtd, request, argument);
    case MEMREADOOB:
    case MEMWRITEOOB:
        return spare_request(&mtd, request, argument);
    default:
        return erase_request(fd, &mtd, argument);
    }
}
