// Interface ids for interfaces whose headers carry no __uuidof declaration (OLE DB, the
// OLE DB service components and MSXML), so that ComPtr<T>::as<U>() works for them too.
#pragma once

#include <windows.h>
#include <oledb.h>
#include <oledberr.h>
#include <msdasc.h>
#include <msdadc.h>
#include <msxml2.h>
#include <transact.h>

#include "common/ComPtr.h"

// MSXML 6.0's document class; mingw's headers stop at version 3.
extern "C" const CLSID CLSID_DOMDocument60;

#define ZEL_INTERFACE_ID(I)                          \
    template <>                                      \
    struct zel::InterfaceId<I> {                     \
        static REFIID get() { return IID_##I; }      \
    };

ZEL_INTERFACE_ID(IAccessor)
ZEL_INTERFACE_ID(IColumnsInfo)
ZEL_INTERFACE_ID(IColumnsRowset)
ZEL_INTERFACE_ID(ICommand)
ZEL_INTERFACE_ID(ICommandPrepare)
ZEL_INTERFACE_ID(ICommandProperties)
ZEL_INTERFACE_ID(ICommandText)
ZEL_INTERFACE_ID(IConvertType)
ZEL_INTERFACE_ID(IDataConvert)
ZEL_INTERFACE_ID(IDataInitialize)
ZEL_INTERFACE_ID(IDBCreateCommand)
ZEL_INTERFACE_ID(IDBCreateSession)
ZEL_INTERFACE_ID(IDBDataSourceAdmin)
ZEL_INTERFACE_ID(IDBInfo)
ZEL_INTERFACE_ID(IDBInitialize)
ZEL_INTERFACE_ID(IDBProperties)
ZEL_INTERFACE_ID(IDBSchemaRowset)
ZEL_INTERFACE_ID(IErrorLookup)
ZEL_INTERFACE_ID(IErrorRecords)
ZEL_INTERFACE_ID(IGetDataSource)
ZEL_INTERFACE_ID(IIndexDefinition)
ZEL_INTERFACE_ID(IOpenRowset)
ZEL_INTERFACE_ID(IRowset)
ZEL_INTERFACE_ID(IRowsetChange)
ZEL_INTERFACE_ID(IRowsetIdentity)
ZEL_INTERFACE_ID(IRowsetInfo)
ZEL_INTERFACE_ID(ISessionProperties)
ZEL_INTERFACE_ID(ISQLErrorInfo)
ZEL_INTERFACE_ID(ITableCreation)
ZEL_INTERFACE_ID(ITableDefinition)
ZEL_INTERFACE_ID(ITransaction)
ZEL_INTERFACE_ID(ITransactionLocal)
ZEL_INTERFACE_ID(IXMLDOMAttribute)
ZEL_INTERFACE_ID(IXMLDOMDocument)
ZEL_INTERFACE_ID(IXMLDOMDocument2)
ZEL_INTERFACE_ID(IXMLDOMElement)
ZEL_INTERFACE_ID(IXMLDOMNamedNodeMap)
ZEL_INTERFACE_ID(IXMLDOMNode)
ZEL_INTERFACE_ID(IXMLDOMNodeList)
ZEL_INTERFACE_ID(IXMLDOMParseError)
ZEL_INTERFACE_ID(IXMLDOMProcessingInstruction)

#undef ZEL_INTERFACE_ID
