-- The tables, and the accounts: what became of every occurrence, and the state of the store.

-- "TEVR" in SQLite's header says whose file it is.
local APPLICATION_ID = 0x54455652

-- A page is as large as the blocks of the file systems and of the flash below. So a lost block is one page, which the
-- journal covers, and takes no neighbours along that were not being written (docs/store.md says more).
local PAGE_SIZE = 4096

-- All ids take five bytes as keys (2^28 to 2^32 - 1), and every table is a plain rowid table without an index. With
-- keys of one length a deletion only ever shrinks a tree, so it needs no new page and no free byte on the disk. A
-- fresh store begins at a random id. So ids that a sender still holds from a store that was set aside name nothing in
-- the new one. An id passes 2^31 after 800 million saves at the earliest. Only the result of `save_report` cannot hold
-- that, on a device with a `long` of 32 bits.
local LOWEST_ID, ID_SPREAD, NO_LAST_ID = 0x10000000, 0x40000000, 2 ^ 40

-- A key of `batches` is the dispatch time and a number within it. With this base all keys have one length and
-- are exact in a Lua number, up to a time in the year 2514.
local BATCH_BASE, BATCHES, LATEST_TIME = 2 ^ 52, 2 ^ 18, 2 ^ 34 - 1

-- The statements that make each version of the store out of the one before, the first out of an empty file. They never
-- change once the version is released.
local VERSIONS = {
  {
    -- Accounts and state in one row, as each save changes both. In occurrences always: saved = stored + removed +
    -- dropped_space + dropped_age.
    [[CREATE TABLE accounts(one INTEGER PRIMARY KEY CHECK(one = 1), saved INTEGER NOT NULL,
        joined INTEGER NOT NULL DEFAULT 0, removed INTEGER NOT NULL DEFAULT 0,
        dropped_space INTEGER NOT NULL DEFAULT 0, dropped_age INTEGER NOT NULL DEFAULT 0,
        refused INTEGER NOT NULL DEFAULT 0, set_aside INTEGER NOT NULL, next_id INTEGER NOT NULL,
        newest_batch INTEGER NOT NULL DEFAULT 0, latest_day INTEGER NOT NULL DEFAULT 0,
        listed_days INTEGER NOT NULL DEFAULT 0, journal_pages INTEGER NOT NULL DEFAULT 0,
        store TEXT NOT NULL)]],
    [[CREATE TABLE batches(batch INTEGER PRIMARY KEY, first_id INTEGER NOT NULL, last_id INTEGER NOT NULL,
        sealed INTEGER NOT NULL DEFAULT 0)]],
    -- `day` is the store's count of listed days when the report came.
    [[CREATE TABLE reports(id INTEGER PRIMARY KEY, module INTEGER NOT NULL, type INTEGER NOT NULL,
        aggregationid INTEGER NOT NULL, count INTEGER NOT NULL, first_time INTEGER NOT NULL,
        last_time INTEGER NOT NULL, day INTEGER NOT NULL, like_key INTEGER, file_key INTEGER)]],
    -- Not in `reports`, so that counting and listing read and write small rows.
    [[CREATE TABLE contents(id INTEGER PRIMARY KEY, size INTEGER NOT NULL, sha256 BLOB NOT NULL,
        body TEXT NOT NULL)]],
    -- The newest report under a hash of what makes reports alike, or of caller and file hash.
    [[CREATE TABLE alike(key INTEGER PRIMARY KEY, id INTEGER NOT NULL, batch INTEGER NOT NULL)]],
    -- Empty, but for the moment in which the journal gets its room.
    [[CREATE TABLE filler(id INTEGER PRIMARY KEY, body BLOB NOT NULL)]],
  },
}

local database
local times_set_aside = 0

-- Writes columns of the accounts, in the same transaction as what they count.
local function account(assignments, ...)
  database.execute("UPDATE accounts SET " .. assignments .. " WHERE one = 1", ...)
end

-- Begins the accounts with what is stored, in a fresh store or where they or one of them were lost. Ids go on above the
-- highest, and no batch goes on.
local function begin_accounts()
  database.execute("BEGIN IMMEDIATE")
  database.execute("REPLACE INTO accounts(one, saved, listed_days, set_aside, next_id, store) "
    .. "SELECT 1, total(min(max(coalesce(count, 1), 1), 2147483647)), coalesce(max(day), 0), %d, "
    .. "max(coalesce(max(id) + 1, 0), %d + abs(random() %% %d)), "
    .. "lower(hex(randomblob(16))) FROM reports WHERE id > 0", times_set_aside, LOWEST_ID, ID_SPREAD)
  database.execute("UPDATE batches SET last_id = min(last_id, (SELECT next_id - 1 FROM accounts WHERE one = 1)) "
    .. "WHERE batch >= %.0f", BATCH_BASE)
  database.execute("COMMIT")
end

-- Brings the store from a version, 0 for an empty file, to the newest one. The first two settings say nothing to a file
-- that has tables.
local function migrate(version)
  database.row("PRAGMA page_size = %d", PAGE_SIZE)
  database.row("PRAGMA auto_vacuum = INCREMENTAL")
  database.execute("BEGIN IMMEDIATE")
  for step = version + 1, #VERSIONS do
    for at = 1, #VERSIONS[step] do database.execute(VERSIONS[step][at]) end
  end
  database.execute("PRAGMA application_id = %d", APPLICATION_ID)
  database.execute("PRAGMA user_version = %d", #VERSIONS)
  database.execute("COMMIT")
end
