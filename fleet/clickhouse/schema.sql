-- SPDX-License-Identifier: Apache-2.0
-- A fleet's rows in a ClickHouse cluster called "bootvigil". docs/fleet.md says how to load it.
--
-- To be run on every node: clickhouse-client --multiquery <schema.sql. A device's rows are all on one
-- shard, where the views make one row of those of the same thing, as fleet/rows/Columns.h has it; so
-- a copy that is added twice counts once, whether or not the engine has merged anything yet.

CREATE DATABASE IF NOT EXISTS bootvigil;

-- What `bootvigil-fleet show --clickhouse` asks for first.
CREATE VIEW bootvigil.schema_version AS SELECT toInt64(1) AS version;

-- ---- Rows as they came, one shard's.

CREATE TABLE bootvigil.device_rows_local (
    device String,
    software String,
    country String,
    model String,
    pulled String,
    state String,
    rule String,
    died Int64,
    episodes Int64,
    problems Int64,
    source String,
    path String,
    seen String,
    added Date MATERIALIZED today()
) ENGINE = ReplacingMergeTree PARTITION BY toYYYYMM(added)
ORDER BY (device, software, country, model, seen);

CREATE TABLE bootvigil.episode_rows_local (
    device String,
    begin String,
    software String,
    country String,
    model String,
    pulled String,
    kind String,
    signature String,
    signature_rules Int64,
    number String,
    phase String,
    detail String,
    milestone String,
    last_event String,
    process String,
    event String,
    reason Int64,
    failures Int64,
    last_time String,
    last_number String,
    actions String,
    outcome String,
    cured_by String,
    end String,
    boots Int64,
    seconds_to_cure Int64,
    evidence_lost Int64,
    died Int64,
    captured Int64,
    source String,
    path String,
    seen String,
    standing String,
    added Date MATERIALIZED today()
) ENGINE = ReplacingMergeTree PARTITION BY toYYYYMM(added)
ORDER BY (device, begin, seen);

-- ---- One row for each thing, one shard's.

CREATE VIEW bootvigil.devices_local AS
SELECT
    device,
    software,
    country,
    model,
    argMax(pulled, by_seen) AS pulled,
    argMax(state, by_seen) AS state,
    argMax(rule, by_seen) AS rule,
    argMax(died, by_seen) AS died,
    argMax(episodes, by_seen) AS episodes,
    argMax(problems, by_seen) AS problems,
    argMax(source, by_seen) AS source,
    argMax(path, by_seen) AS path,
    argMax(seen, by_seen) AS seen
FROM (SELECT *, seen AS by_seen FROM bootvigil.device_rows_local)
GROUP BY device, software, country, model;

CREATE VIEW bootvigil.episodes_local AS
SELECT
    device,
    begin,
    argMin(software, by_seen) AS software,
    argMin(country, by_seen) AS country,
    argMin(model, by_seen) AS model,
    argMin(pulled, by_seen) AS pulled,
    argMax(kind, by_standing) AS kind,
    argMax(signature, by_standing) AS signature,
    argMax(signature_rules, by_standing) AS signature_rules,
    argMax(number, by_standing) AS number,
    argMax(phase, by_standing) AS phase,
    argMax(detail, by_standing) AS detail,
    argMax(milestone, by_standing) AS milestone,
    argMax(last_event, by_standing) AS last_event,
    argMax(process, by_standing) AS process,
    argMax(event, by_standing) AS event,
    argMax(reason, by_standing) AS reason,
    argMax(failures, by_standing) AS failures,
    argMax(last_time, by_standing) AS last_time,
    argMax(last_number, by_standing) AS last_number,
    argMax(actions, by_standing) AS actions,
    argMax(outcome, by_standing) AS outcome,
    argMax(cured_by, by_standing) AS cured_by,
    argMax(end, by_standing) AS end,
    argMax(boots, by_standing) AS boots,
    argMax(seconds_to_cure, by_standing) AS seconds_to_cure,
    argMax(evidence_lost, by_standing) AS evidence_lost,
    argMax(died, by_standing) AS died,
    argMax(captured, by_standing) AS captured,
    argMax(source, by_standing) AS source,
    argMax(path, by_standing) AS path,
    argMin(seen, by_seen) AS seen,
    argMax(standing, by_standing) AS standing
FROM (SELECT *, seen AS by_seen, standing AS by_standing FROM bootvigil.episode_rows_local)
GROUP BY device, begin;

-- ---- All shards: what the queries read, and where rows are sent to their shard.

CREATE TABLE bootvigil.devices (
    device String,
    software String,
    country String,
    model String,
    pulled String,
    state String,
    rule String,
    died Int64,
    episodes Int64,
    problems Int64,
    source String,
    path String,
    seen String
) ENGINE = Distributed(bootvigil, bootvigil, devices_local);

CREATE TABLE bootvigil.episodes (
    device String,
    begin String,
    software String,
    country String,
    model String,
    pulled String,
    kind String,
    signature String,
    signature_rules Int64,
    number String,
    phase String,
    detail String,
    milestone String,
    last_event String,
    process String,
    event String,
    reason Int64,
    failures Int64,
    last_time String,
    last_number String,
    actions String,
    outcome String,
    cured_by String,
    end String,
    boots Int64,
    seconds_to_cure Int64,
    evidence_lost Int64,
    died Int64,
    captured Int64,
    source String,
    path String,
    seen String,
    standing String
) ENGINE = Distributed(bootvigil, bootvigil, episodes_local);

CREATE TABLE bootvigil.device_rows (
    device String,
    software String,
    country String,
    model String,
    pulled String,
    state String,
    rule String,
    died Int64,
    episodes Int64,
    problems Int64,
    source String,
    path String,
    seen String
) ENGINE = Distributed(bootvigil, bootvigil, device_rows_local, cityHash64(device));

CREATE TABLE bootvigil.episode_rows (
    device String,
    begin String,
    software String,
    country String,
    model String,
    pulled String,
    kind String,
    signature String,
    signature_rules Int64,
    number String,
    phase String,
    detail String,
    milestone String,
    last_event String,
    process String,
    event String,
    reason Int64,
    failures Int64,
    last_time String,
    last_number String,
    actions String,
    outcome String,
    cured_by String,
    end String,
    boots Int64,
    seconds_to_cure Int64,
    evidence_lost Int64,
    died Int64,
    captured Int64,
    source String,
    path String,
    seen String,
    standing String
) ENGINE = Distributed(bootvigil, bootvigil, episode_rows_local, cityHash64(device));

-- ---- Takes what `bootvigil-fleet rows` writes, both kinds of rows in one stream.

CREATE TABLE bootvigil.rows (
    table String,
    device String,
    software String,
    country String,
    model String,
    pulled String,
    state String,
    rule String,
    died Int64,
    episodes Int64,
    problems Int64,
    source String,
    path String,
    seen String,
    begin String,
    kind String,
    signature String,
    signature_rules Int64,
    number String,
    phase String,
    detail String,
    milestone String,
    last_event String,
    process String,
    event String,
    reason Int64,
    failures Int64,
    last_time String,
    last_number String,
    actions String,
    outcome String,
    cured_by String,
    end String,
    boots Int64,
    seconds_to_cure Int64,
    evidence_lost Int64,
    captured Int64,
    standing String
) ENGINE = Null;

CREATE MATERIALIZED VIEW bootvigil.rows_to_devices TO bootvigil.device_rows AS
SELECT
    device, software, country, model, pulled, state, rule, died, episodes, problems, source, path,
    seen
FROM bootvigil.rows WHERE table = 'devices';

CREATE MATERIALIZED VIEW bootvigil.rows_to_episodes TO bootvigil.episode_rows AS
SELECT
    device, begin, software, country, model, pulled, kind, signature, signature_rules, number,
    phase, detail, milestone, last_event, process, event, reason, failures, last_time, last_number,
    actions, outcome, cured_by, end, boots, seconds_to_cure, evidence_lost, died, captured, source,
    path, seen, standing
FROM bootvigil.rows WHERE table = 'episodes';
