/*
 * stb_image.c - the one translation unit that holds stb_image's decoder,
 * limited to the formats the command reads through it (JPEG and binary
 * netpbm). Nothing else of stb is compiled in.
 */
#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_JPEG
#define STBI_ONLY_PNM
#define STBI_NO_STDIO
#define STBI_FAILURE_USERMSG
#include <stb/stb_image.h>
