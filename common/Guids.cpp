// Definitions of the OLE DB GUID constants (property sets, schema rowsets, DB_NULLID...)
// that the headers only declare unless DBINITCONSTANTS is set, and of the MSXML 6.0 ids
// that mingw's headers lack. Exactly one translation unit per binary defines them.
#define DBINITCONSTANTS
#include <windows.h>
#include <oledb.h>
#include <msdaguid.h>
#include <msdasc.h>
#include <msxml2.h>

extern "C" const CLSID CLSID_DOMDocument60 = {
    0x88d96a05, 0xf192, 0x11d4, {0xa6, 0x5f, 0x00, 0x40, 0x96, 0x32, 0x51, 0xe5}};
extern "C" const IID IID_IXMLDOMDocument2 = {
    0x2933bf95, 0x7b36, 0x11d2, {0xb2, 0x0e, 0x00, 0xc0, 0x4f, 0x98, 0x3e, 0x60}};
