/*
 * guarded_host.c - a host in C that survives the driver's exceptions, through the C++ shim
 * of guarded_calls.h. It reads a tag number past its tag file, as a host does whose tag
 * file went missing: the driver reads it as a tag that resolved to nothing, and the
 * controller's reply is too short for the elements asked, which raises std::out_of_range.
 * The shim catches it and closes the connection; the host drops that round's values,
 * reconnects and reads Counter.
 *
 *   guarded_host LIBRARY CONTROLLER_IP TAG_FILE TAG_LIST
 *
 * Exits 0 when the exception was caught and Counter reads -42 after the reconnect.
 */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "guarded_calls.h"

static struct {
  void (*InitEx)(uint32_t, const unitydrv_init_params*);
  int (*StartDeviceEx)(uint8_t, void**, const char*, uint32_t);
  unitydrv_init_cmd_fn GetInitCmdEx2;
  int (*CheckInitCmdResponseEx2)(uint32_t, uint32_t, void**);
  unitydrv_output_filter_fn OutputFilterEx;
  void (*InputFilterEx)(_input_data_*, _frame_data_*, _system_info*, int);
  unitydrv_timeout_fn Timeout;
  void (*CloseDevice)(uint32_t, void*);
} drv;

static int load(const char* path) {
  void* lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (lib == NULL) return fprintf(stderr, "guarded_host: %s\n", dlerror()), 0;
  *(void**)&drv.InitEx = dlsym(lib, "ORMAND_DRV_InitEx");
  *(void**)&drv.StartDeviceEx = dlsym(lib, "ORMAND_DRV_StartDeviceEx");
  *(void**)&drv.GetInitCmdEx2 = dlsym(lib, "ORMAND_DRV_GetInitCmdEx2");
  *(void**)&drv.CheckInitCmdResponseEx2 = dlsym(lib, "ORMAND_DRV_CheckInitCmdResponseEx2");
  *(void**)&drv.OutputFilterEx = dlsym(lib, "ORMAND_DRV_OutputFilterEx");
  *(void**)&drv.InputFilterEx = dlsym(lib, "ORMAND_DRV_InputFilterEx");
  *(void**)&drv.Timeout = dlsym(lib, "ORMAND_DRV_Timeout");
  *(void**)&drv.CloseDevice = dlsym(lib, "ORMAND_DRV_CloseDevice");
  return drv.InitEx && drv.StartDeviceEx && drv.GetInitCmdEx2 && drv.CheckInitCmdResponseEx2 &&
         drv.OutputFilterEx && drv.InputFilterEx && drv.Timeout && drv.CloseDevice;
}

/* Connects (again): 1 when the device is ready. */
static int connect_device(void** device) {
  char what[256];
  uint32_t code = 0;
  if (unitydrv_guarded_init(drv.GetInitCmdEx2, drv.Timeout, &code, device, what, sizeof what)) {
    fprintf(stderr, "guarded_host: GetInitCmdEx2 raised: %s\n", what);
    return 0;
  }
  return code == 0 && drv.CheckInitCmdResponseEx2(0, 0, device) == 1;
}

/* One read round of one tag: 1 with the value in *value, 0 when the round failed. */
static int read_one(void* device, uint32_t tag, uint16_t count, uint16_t* value) {
  static _gui_request_ request;
  static _input_data_ result;
  _system_info info;
  char what[256];
  memset(&request, 0, sizeof request);
  request.ref.tag_index = tag;
  request.ref.type_code_a = UNITYDRV_TYPE_INT;
  request.ref.element_count = count;
  request.device_handle = device;
  if (unitydrv_guarded_output(drv.OutputFilterEx, drv.Timeout, &request, 1, what, sizeof what)) {
    printf("tag %u: the driver raised \"%s\"; values of this round dropped\n", (unsigned)tag, what);
    return 0;
  }
  memset(&info, 0, sizeof info);
  info.info_valid = 1;
  info.device_handle = device;
  drv.InputFilterEx(&result, NULL, &info, 1);
  *value = result.result_words[0];
  return result.result_status == 0;
}

static long position_of(const char* list, const char* name) {
  char line[256];
  long i = 0;
  FILE* f = fopen(list, "r");
  if (f == NULL) return -1;
  while (fgets(line, sizeof line, f) != NULL) {
    line[strcspn(line, "\r\n")] = '\0';
    if (line[0] == '\0') continue;
    if (strcmp(line, name) == 0) break;
    ++i;
  }
  fclose(f);
  return i;
}

int main(int argc, char** argv) {
  unsigned a, b, c, d;
  unitydrv_init_params params;
  void* device = NULL;
  uint16_t value = 0;
  int caught, ok;
  if (argc != 5 || sscanf(argv[2], "%u.%u.%u.%u", &a, &b, &c, &d) != 4) {
    fprintf(stderr, "usage: guarded_host LIBRARY CONTROLLER_IP TAG_FILE TAG_LIST\n");
    return 2;
  }
  if (!load(argv[1])) return 1;
  memset(&params, 0, sizeof params);
  params.octet1 = (uint8_t)a;
  params.octet2 = (uint8_t)b;
  params.octet3 = (uint16_t)c;
  params.octet4 = (uint16_t)d;
  drv.InitEx(0, &params);
  drv.StartDeviceEx(0, &device, argv[3], 0);
  if (!connect_device(&device)) return fprintf(stderr, "guarded_host: not ready\n"), 1;
  /* Tag 1000 is past the table: eight INTs asked, far fewer bytes in the reply. */
  caught = !read_one(device, 1000, 8, &value);
  /* The shim closed the connection: reconnect, as after any failed round. */
  drv.InitEx(0, &params);
  ok = caught && connect_device(&device) &&
       read_one(device, (uint32_t)position_of(argv[4], "Counter"), 1, &value) &&
       (int16_t)value == -42;
  printf("Counter after the reconnect: %d\n%s\n", (int16_t)value, ok ? "ok" : "FAILED");
  drv.CloseDevice(0, device);
  return ok ? 0 : 1;
}
