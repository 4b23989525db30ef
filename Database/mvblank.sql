-- The blank rule database shipped with Mailvane: schema version 1.8.0.
-- Built into _mvblank.mdb by mv-mkdb; statements end with ";" at line end.
-- docs/database.md explains every default below.

CREATE TABLE [Rules] (
  [RuleID] Counter,
  [RuleName] Text(150),
  [FromAddress] Memo,
  [ToAddress] Memo,
  [CcAddress] Memo,
  [Subject] Memo,
  [Importance] Integer,
  [Status] Integer,
  [FlagStatus] Integer,
  [MsgAgeID] Integer,
  [SrcEntryID] Memo,
  [SrcStoreID] Memo,
  [DstEntryID] Memo,
  [DstStoreID] Memo,
  [Active] Integer DEFAULT -1,
  [SortID] Integer,
  [LastVerb] Integer,
  [Message] Memo
);

CREATE TABLE [Settings] (
  [version] Text(10),
  [WeekStart] Integer,
  [toolbar] Integer,
  [menubar] Integer,
  [runOnStart] Integer,
  [tbTop] Integer,
  [tbLeft] Integer,
  [tbRow] Integer,
  [tbPos] Integer,
  [init] Integer,
  [statusPopups] Integer,
  [alignTime] Integer,
  [raRuleName] Integer,
  [raFrom] Integer,
  [raTo] Integer,
  [raCc] Integer,
  [raSubject] Integer,
  [raImportance] Integer,
  [raStatus] Integer,
  [raMsgAge] Integer
);

INSERT INTO [Settings] VALUES ('1.8.0', 2, 1, 1, 0, 0, 0, 0, 1, 0, 1, 1, 0, 1, 1, 0, 1, 1, 1, 1);

CREATE TABLE [MsgAge] (
  [MsgAgeID] Integer PRIMARY KEY,
  [timeField] Text(10),
  [timeDiff] Integer
);

-- Rows 1 to 12 match the editor's labels "1 hour" ... "1 year".
INSERT INTO [MsgAge] VALUES (1, 'h', -1);
INSERT INTO [MsgAge] VALUES (2, 'h', -2);
INSERT INTO [MsgAge] VALUES (3, 'h', -4);
INSERT INTO [MsgAge] VALUES (4, 'h', -8);
INSERT INTO [MsgAge] VALUES (5, 'd', -1);
INSERT INTO [MsgAge] VALUES (6, 'd', -2);
INSERT INTO [MsgAge] VALUES (7, 'ww', -1);
INSERT INTO [MsgAge] VALUES (8, 'ww', -2);
INSERT INTO [MsgAge] VALUES (9, 'm', -1);
INSERT INTO [MsgAge] VALUES (10, 'm', -2);
INSERT INTO [MsgAge] VALUES (11, 'm', -3);
INSERT INTO [MsgAge] VALUES (12, 'yyyy', -1);
-- Rows 13 to 20 as the upgrades add them ("Any Time" holds 'x' and 0).
INSERT INTO [MsgAge] VALUES (13, 'x', 0);
INSERT INTO [MsgAge] VALUES (14, 'n', -15);
INSERT INTO [MsgAge] VALUES (15, 'd', -3);
INSERT INTO [MsgAge] VALUES (16, 'd', -4);
INSERT INTO [MsgAge] VALUES (17, 'd', -5);
INSERT INTO [MsgAge] VALUES (18, 'm', -6);
INSERT INTO [MsgAge] VALUES (19, 'yyyy', -1);
INSERT INTO [MsgAge] VALUES (20, 'yyyy', -2);
