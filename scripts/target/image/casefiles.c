// SPDX-License-Identifier: GPL-2.0
/*
 * What the player's own kernel leaves for the crash dump collector, as real
 * kernel files in a test boot of the emulated board: /dev/ltcore,
 * /dev/lastkmsg, /proc/panic_flag, /proc/boardid and
 * /sys/class/mem/lastkmsg/trigger_dump. Each reads back the file of its own
 * name that the firmware loader finds (firmware_class.path= names the case's
 * directory), read once when the module loads; a missing file reads empty.
 *
 * The trigger lives in the kernel's "mem" class, the class of /dev/mem and
 * /dev/kmsg, which the kernel does not export. The class is taken from the
 * kmsg device, found by name among all devices: the devices kset is not
 * exported either, but every device's kobject points to it. lastkmsg is a
 * character device of that class, on a major of its own (the class's major 1
 * belongs whole to the memory devices) and minor 0 (the class's naming
 * callback looks its minor up in a table where 0 names nothing), so that udev
 * makes its node /dev/lastkmsg.
 */
#include <linux/cdev.h>
#include <linux/device.h>
#include <linux/firmware.h>
#include <linux/fs.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/proc_fs.h>

enum { LTCORE, LASTKMSG, PANIC_FLAG, BOARDID, TRIGGER, FILES };
static const char *const names[FILES] = { "ltcore", "lastkmsg", "panic_flag", "boardid", "trigger_dump" };
static const struct firmware *blobs[FILES];

static ssize_t blob_read(int which, char __user *buffer, size_t count, loff_t *position)
{
	if (!blobs[which])
		return 0;
	return simple_read_from_buffer(buffer, count, position, blobs[which]->data, blobs[which]->size);
}

#define BLOB_READER(which) \
	static ssize_t read_##which(struct file *file, char __user *buffer, size_t count, loff_t *position) \
	{ \
		return blob_read(which, buffer, count, position); \
	}
BLOB_READER(LTCORE)
BLOB_READER(LASTKMSG)
BLOB_READER(PANIC_FLAG)
BLOB_READER(BOARDID)

static const struct file_operations ltcore_fops = { .owner = THIS_MODULE, .read = read_LTCORE };
static const struct file_operations lastkmsg_fops = { .owner = THIS_MODULE, .read = read_LASTKMSG };
static const struct proc_ops panic_flag_ops = { .proc_read = read_PANIC_FLAG };
static const struct proc_ops boardid_ops = { .proc_read = read_BOARDID };

static struct miscdevice ltcore = { .minor = MISC_DYNAMIC_MINOR, .name = "ltcore", .fops = &ltcore_fops };

static ssize_t trigger_dump_show(struct device *device, struct device_attribute *attribute, char *buffer)
{
	size_t length = blobs[TRIGGER] ? min_t(size_t, blobs[TRIGGER]->size, PAGE_SIZE) : 0;

	if (length)
		memcpy(buffer, blobs[TRIGGER]->data, length);
	return length;
}
static DEVICE_ATTR_RO(trigger_dump);
static struct attribute *trigger_attrs[] = { &dev_attr_trigger_dump.attr, NULL };
ATTRIBUTE_GROUPS(trigger);

static struct class *mem_class;
static dev_t lastkmsg_number;
static struct cdev lastkmsg;
static struct device *lastkmsg_device;

static struct class *find_mem_class(void)
{
	struct kobject *kmsg = kset_find_obj(ltcore.this_device->kobj.kset, "kmsg");
	struct class *class = NULL;

	if (kmsg) {
		class = kobj_to_dev(kmsg)->class;
		kobject_put(kmsg);
	}
	return class && !strcmp(class->name, "mem") ? class : NULL;
}

static void release_blobs(void)
{
	int i;

	for (i = 0; i < FILES; i++)
		release_firmware(blobs[i]);
}

static int __init casefiles_init(void)
{
	int i, error;

	for (i = 0; i < FILES; i++)
		if (request_firmware_direct(&blobs[i], names[i], NULL))
			blobs[i] = NULL;
	error = misc_register(&ltcore);
	if (error)
		goto no_ltcore;
	error = -ENOENT;
	mem_class = find_mem_class();
	if (!mem_class)
		goto no_class;
	error = alloc_chrdev_region(&lastkmsg_number, 0, 1, "lastkmsg");
	if (error)
		goto no_class;
	cdev_init(&lastkmsg, &lastkmsg_fops);
	error = cdev_add(&lastkmsg, lastkmsg_number, 1);
	if (error)
		goto no_cdev;
	lastkmsg_device = device_create_with_groups(mem_class, NULL, lastkmsg_number, NULL, trigger_groups,
						    "lastkmsg");
	error = PTR_ERR_OR_ZERO(lastkmsg_device);
	if (error)
		goto no_device;
	error = -ENOMEM;
	if (!proc_create("panic_flag", 0444, NULL, &panic_flag_ops))
		goto no_panic_flag;
	if (!proc_create("boardid", 0444, NULL, &boardid_ops))
		goto no_boardid;
	return 0;

no_boardid:
	remove_proc_entry("panic_flag", NULL);
no_panic_flag:
	device_destroy(mem_class, lastkmsg_number);
no_device:
	cdev_del(&lastkmsg);
no_cdev:
	unregister_chrdev_region(lastkmsg_number, 1);
no_class:
	misc_deregister(&ltcore);
no_ltcore:
	release_blobs();
	return error;
}

static void __exit casefiles_exit(void)
{
	remove_proc_entry("boardid", NULL);
	remove_proc_entry("panic_flag", NULL);
	device_destroy(mem_class, lastkmsg_number);
	cdev_del(&lastkmsg);
	unregister_chrdev_region(lastkmsg_number, 1);
	misc_deregister(&ltcore);
	release_blobs();
}

module_init(casefiles_init);
module_exit(casefiles_exit);
MODULE_DESCRIPTION("The player kernel's crash interfaces, filled from a test case");
MODULE_LICENSE("GPL");
