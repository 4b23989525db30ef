#pragma once
// ADO's numeric constants, kept at their published values because the rule
// store passes them literally (type 202, option 128, cursor location 3 ...).

namespace mv::ado {

enum ObjectState : int { adStateClosed = 0, adStateOpen = 1 };

enum DataType : int {
    adEmpty = 0,
    adSmallInt = 2,
    adInteger = 3,
    adSingle = 4,
    adDouble = 5,
    adCurrency = 6,
    adDate = 7,
    adBoolean = 11,
    adVariant = 12,
    adTinyInt = 16,
    adUnsignedTinyInt = 17,
    adBigInt = 20,
    adGUID = 72,
    adBinary = 128,
    adChar = 129,
    adWChar = 130,
    adNumeric = 131,
    adDBTimeStamp = 135,
    adVarChar = 200,
    adLongVarChar = 201,
    adVarWChar = 202,
    adLongVarWChar = 203,
    adVarBinary = 204,
    adLongVarBinary = 205,
};

enum CommandType : int { adCmdUnspecified = -1, adCmdText = 1, adCmdTable = 2, adCmdStoredProc = 4, adCmdUnknown = 8 };
enum ExecuteOption : int { adOptionUnspecified = -1, adExecuteNoRecords = 128 };
enum CursorLocation : int { adUseServer = 2, adUseClient = 3 };
enum CursorType : int { adOpenUnspecified = -1, adOpenForwardOnly = 0, adOpenKeyset = 1, adOpenDynamic = 2, adOpenStatic = 3 };
enum LockType : int { adLockUnspecified = -1, adLockReadOnly = 1, adLockPessimistic = 2, adLockOptimistic = 3, adLockBatchOptimistic = 4 };
enum ParameterDirection : int { adParamUnknown = 0, adParamInput = 1, adParamOutput = 2, adParamInputOutput = 3, adParamReturnValue = 4 };
enum PersistFormat : int { adPersistADTG = 0, adPersistXML = 1 };
enum SearchDirection : int { adSearchForward = 1, adSearchBackward = -1 };
enum AffectEnum : int { adAffectCurrent = 1, adAffectGroup = 2, adAffectAll = 3 };
enum ResyncEnum : int { adResyncUnderlyingValues = 1, adResyncAllValues = 2 };

}  // namespace mv::ado
