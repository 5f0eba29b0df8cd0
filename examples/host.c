/*
 * host.c - a minimal host for libunitydrv in C: loads the library with dlopen, connects
 * to a controller, reads a few tags of examples/plant.json, writes two and reads them back.
 *
 *   host LIBRARY CONTROLLER_IP TAG_FILE TAG_LIST
 *
 * TAG_FILE is a tag file (panelhost tags build TAG_LIST TAG_FILE); TAG_LIST gives the
 * tag names in file order, from which the example finds each tag's index.
 * Exits 0 when every value read back is the value written.
 */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "unitydrv/unitydrv.h"

/* The entry points this host uses, resolved by name. */
static struct {
  void (*InitEx)(uint32_t, const unitydrv_init_params*);
  int (*StartDeviceEx)(uint8_t, void**, const char*, uint32_t);
  unitydrv_result (*GetInitCmdEx2)(uint32_t*, uint32_t, uint32_t, uint32_t, void**);
  int (*CheckInitCmdResponseEx2)(uint32_t, uint32_t, void**);
  unitydrv_result (*OutputFilterEx)(_gui_request_*, int);
  void (*InputFilterEx)(_input_data_*, _frame_data_*, _system_info*, int);
  void (*Timeout)(uint32_t, void*);
  void (*CloseDevice)(uint32_t, void*);
} drv;

static int resolve(void* lib, void** fn, const char* name) {
  *fn = dlsym(lib, name);
  if (*fn == NULL) fprintf(stderr, "host: %s missing\n", name);
  return *fn != NULL;
}

static int load(const char* path) {
  void* lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (lib == NULL) {
    fprintf(stderr, "host: %s\n", dlerror());
    return 0;
  }
  return resolve(lib, (void**)&drv.InitEx, "ORMAND_DRV_InitEx") &&
         resolve(lib, (void**)&drv.StartDeviceEx, "ORMAND_DRV_StartDeviceEx") &&
         resolve(lib, (void**)&drv.GetInitCmdEx2, "ORMAND_DRV_GetInitCmdEx2") &&
         resolve(lib, (void**)&drv.CheckInitCmdResponseEx2, "ORMAND_DRV_CheckInitCmdResponseEx2") &&
         resolve(lib, (void**)&drv.OutputFilterEx, "ORMAND_DRV_OutputFilterEx") &&
         resolve(lib, (void**)&drv.InputFilterEx, "ORMAND_DRV_InputFilterEx") &&
         resolve(lib, (void**)&drv.Timeout, "ORMAND_DRV_Timeout") &&
         resolve(lib, (void**)&drv.CloseDevice, "ORMAND_DRV_CloseDevice");
}

/* Position of name in the list file (one name a line, empty lines skipped), or -1. */
static long tag_index(const char* list, const char* name) {
  char line[256];
  long i = 0, found = -1;
  FILE* f = fopen(list, "r");
  if (f == NULL) return -1;
  while (found < 0 && fgets(line, sizeof line, f) != NULL) {
    line[strcspn(line, "\r\n")] = '\0';
    if (line[0] == '\0') continue;
    if (strcmp(line, name) == 0) found = i;
    ++i;
  }
  fclose(f);
  return found;
}

/* One request: tag, type code, element count; everything else zero. */
static void set_request(_gui_request_* r, void* device, long tag, uint8_t type, uint16_t n) {
  memset(r, 0, sizeof *r);
  r->ref.tag_index = (uint32_t)tag;
  r->ref.type_code_a = type;
  r->ref.element_count = n;
  r->device_handle = device;
}

struct tag {
  const char* name;
  uint8_t type;
  uint16_t count;
  long index;
};

/* Reads the tags in one round; results[i] holds tag i. 0 when the round failed. */
static int read_tags(void* device, struct tag* tags, int n, _input_data_* results) {
  static _gui_request_ requests[8];
  _system_info infos[8];
  int i;
  for (i = 0; i < n; ++i)
    set_request(&requests[i], device, tags[i].index, tags[i].type, tags[i].count);
  drv.OutputFilterEx(requests, n);
  memset(infos, 0, sizeof infos);
  infos[0].info_valid = 1;
  infos[0].device_handle = device;
  drv.InputFilterEx(results, NULL, infos, n);
  for (i = 0; i < n; ++i) {
    if (results[i].result_status != 0) return 0;
  }
  return 1;
}

static void write_tag(void* device, const struct tag* t, const uint16_t* words, uint16_t n) {
  static _gui_request_ request;
  set_request(&request, device, t->index, t->type, t->count);
  request.request_kind = 1;
  request.write.write_count = n;
  memcpy(request.write_words, words, n * sizeof *words);
  drv.OutputFilterEx(&request, 1);
}

static uint32_t u32(const uint16_t* w) {
  return (uint32_t)w[0] | (uint32_t)w[1] << 16;
}

static void print(const struct tag* t, const _input_data_* r) {
  const uint16_t* w = r->result_words;
  float f;
  uint32_t bits;
  int k;
  printf("%-12s ", t->name);
  switch (t->type) {
    case UNITYDRV_TYPE_INT:
      printf("%d\n", (int16_t)w[0]);
      break;
    case UNITYDRV_TYPE_DINT:
      printf("%ld\n", (long)(int32_t)u32(w));
      break;
    case UNITYDRV_TYPE_REAL:
      bits = u32(w);
      memcpy(&f, &bits, sizeof f);
      printf("%g\n", f);
      break;
    case UNITYDRV_TYPE_LINT:
      printf("%lld\n", (long long)((uint64_t)u32(w + 2) << 32 | u32(w)));
      break;
    case UNITYDRV_TYPE_STRING:
      for (k = 0; k < t->count && (w[k] & 0xFF) != 0; ++k) putchar(w[k] & 0xFF);
      putchar('\n');
      break;
  }
}

static int session(void* device, const char* list) {
  static _input_data_ results[8];
  struct tag tags[] = {{"Counter", UNITYDRV_TYPE_INT, 1, 0},
                       {"Total", UNITYDRV_TYPE_DINT, 1, 0},
                       {"Temperature", UNITYDRV_TYPE_REAL, 1, 0},
                       {"Energy", UNITYDRV_TYPE_LINT, 1, 0},
                       {"Name", UNITYDRV_TYPE_STRING, 7, 0}};
  const int n = (int)(sizeof tags / sizeof tags[0]);
  const float celsius = 22.75f;
  uint16_t counter = 1234, real_words[2];
  uint32_t bits;
  int i;
  for (i = 0; i < n; ++i) {
    tags[i].index = tag_index(list, tags[i].name);
    if (tags[i].index < 0) {
      fprintf(stderr, "host: %s is not in %s\n", tags[i].name, list);
      return 0;
    }
  }
  if (!read_tags(device, tags, n, results)) return 0;
  for (i = 0; i < n; ++i) print(&tags[i], &results[i]);

  /* A REAL goes out as two units, low half first, like every 32-bit value. */
  memcpy(&bits, &celsius, sizeof bits);
  real_words[0] = (uint16_t)bits;
  real_words[1] = (uint16_t)(bits >> 16);
  write_tag(device, &tags[0], &counter, 1);
  write_tag(device, &tags[2], real_words, 2);
  printf("wrote Counter = %u, Temperature = %g\n", counter, celsius);
  if (!read_tags(device, tags, n, results)) return 0;
  for (i = 0; i < n; ++i) print(&tags[i], &results[i]);
  return results[0].result_words[0] == counter && u32(results[2].result_words) == bits;
}

int main(int argc, char** argv) {
  unsigned a, b, c, d;
  unitydrv_init_params params;
  void* device = NULL;
  uint32_t code = 0;
  int ok;
  if (argc != 5 || sscanf(argv[2], "%u.%u.%u.%u", &a, &b, &c, &d) != 4) {
    fprintf(stderr, "usage: host LIBRARY CONTROLLER_IP TAG_FILE TAG_LIST\n");
    return 2;
  }
  if (!load(argv[1])) return 1;
  printf("libunitydrv headers %s\n", UNITYDRV_VERSION);
  memset(&params, 0, sizeof params);
  params.octet1 = (uint8_t)a;
  params.octet2 = (uint8_t)b;
  params.octet3 = (uint16_t)c;
  params.octet4 = (uint16_t)d;
  drv.InitEx(0, &params);
  drv.StartDeviceEx(0, &device, argv[3], 0);
  drv.GetInitCmdEx2(&code, 0, 0, 0, &device);
  if (code != 0 || drv.CheckInitCmdResponseEx2(0, 0, &device) != 1) {
    fprintf(stderr, "host: no controller ready at %s (code %u)\n", argv[2], (unsigned)code);
    drv.CloseDevice(0, device);
    return 1;
  }
  ok = session(device, argv[4]);
  drv.Timeout(0, device);
  drv.CloseDevice(0, device);
  puts(ok ? "ok" : "FAILED");
  return ok ? 0 : 1;
}
