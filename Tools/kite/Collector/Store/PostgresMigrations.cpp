#include "Collector/Store/PostgresSchema.h"

namespace kite::tool {
namespace {

// An event's identifier outlives its row, so that it is known after its day was dropped. What many
// collectors count at once is counted in slots, or each would wait for the commits of all others.
constexpr const char* tables = R"(
  CREATE SEQUENCE event_numbers;
  SELECT nextval('event_numbers');
  CREATE TABLE identifiers(
    id uuid PRIMARY KEY, seq bigint NOT NULL, received_at double precision NOT NULL);
  CREATE TABLE events(
    seq bigint NOT NULL, id text NOT NULL, type text NOT NULL,
    timestamp double precision NOT NULL, request_timestamp double precision NOT NULL,
    received_at double precision NOT NULL, app text NOT NULL, client_id text NOT NULL,
    tester boolean NOT NULL, user_info jsonb COMPRESSION lz4 NOT NULL,
    user_ids jsonb COMPRESSION lz4 NOT NULL, data jsonb COMPRESSION lz4 NOT NULL,
    duplicates bigint NOT NULL DEFAULT 0) PARTITION BY RANGE (received_at);
  CREATE INDEX events_in_order ON events(seq);
  CREATE TABLE requests(
    request_id uuid PRIMARY KEY, received_at double precision NOT NULL, client_id text NOT NULL,
    status integer NOT NULL, error_code integer);
  CREATE INDEX requests_in_time ON requests USING brin (received_at);
  CREATE TABLE clients(
    client_id text PRIMARY KEY, newest_timestamp double precision NOT NULL, app text NOT NULL,
    tester boolean NOT NULL, events bigint NOT NULL DEFAULT 0, first double precision,
    last double precision) WITH (fillfactor = 70);
  CREATE TABLE type_counts(
    day bigint NOT NULL, type text NOT NULL, slot integer NOT NULL, events bigint NOT NULL,
    duplicates bigint NOT NULL, first double precision, last double precision,
    PRIMARY KEY (day, type, slot)) WITH (fillfactor = 50);
  CREATE TABLE sessions(
    seq bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY, id text NOT NULL,
    client_id text NOT NULL, started double precision NOT NULL, ended double precision NOT NULL,
    has_ended boolean NOT NULL, has_crashed boolean NOT NULL, events bigint NOT NULL,
    background text NOT NULL, is_in_background boolean NOT NULL, UNIQUE (client_id, id));
  CREATE INDEX sessions_in_time ON sessions(client_id, started, seq);
  CREATE TABLE received_requests(
    seq bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY, received_at double precision NOT NULL,
    method text NOT NULL, path text NOT NULL, endpoint text NOT NULL, status integer NOT NULL,
    error_code integer, message text, fault text, bytes bigint NOT NULL, unpacked_bytes bigint,
    new_events bigint NOT NULL, duplicates bigint NOT NULL, duration double precision NOT NULL,
    attempt bigint NOT NULL, client_id text, request_id text, headers text NOT NULL);
  CREATE INDEX refused_requests ON received_requests(seq)
    WHERE error_code IS NOT NULL AND fault IS NULL;
  CREATE TABLE refused_bodies(seq bigint PRIMARY KEY, size bigint NOT NULL, body bytea NOT NULL);
)";

// They run with their owner's rights: a collector may not make or remove anything by itself.
constexpr const char* functions = R"(
  CREATE FUNCTION make_partitions(at double precision) RETURNS void
  LANGUAGE plpgsql SECURITY DEFINER SET search_path FROM CURRENT AS $$
  DECLARE
    day bigint;
    part text;
  BEGIN
    PERFORM pg_advisory_xact_lock(0, 0);
    FOR day IN SELECT generate_series(floor(at / 86400)::bigint, floor(at / 86400)::bigint + 2) LOOP
      part := 'events_' || to_char(to_timestamp(day * 86400) AT TIME ZONE 'UTC', 'YYYYMMDD');
      CONTINUE WHEN to_regclass(part) IS NOT NULL;
      EXECUTE format('CREATE TABLE %I (LIKE events INCLUDING ALL)', part);
      EXECUTE format('ALTER TABLE events ATTACH PARTITION %I FOR VALUES FROM (%s) TO (%s)', part,
                     day * 86400, (day + 1) * 86400);
    END LOOP;
  END $$;
  CREATE FUNCTION drop_partitions(before double precision) RETURNS bigint
  LANGUAGE plpgsql SET search_path FROM CURRENT AS $$
  DECLARE
    part text;
    dropped bigint := 0;
  BEGIN
    FOR part IN SELECT relname FROM pg_inherits JOIN pg_class ON pg_class.oid = inhrelid
      WHERE inhparent = 'events'::regclass AND relname <
        'events_' || to_char(to_timestamp(before) AT TIME ZONE 'UTC', 'YYYYMMDD')
    LOOP
      EXECUTE format('DROP TABLE %I', part);
      dropped := dropped + 1;
    END LOOP;
    DELETE FROM type_counts WHERE day < floor(before / 86400);
    DELETE FROM sessions WHERE ended < before;
    RETURN dropped;
  END $$;
  CREATE FUNCTION trim_requests(most_requests bigint, most_bodies bigint, most_bytes bigint)
  RETURNS void LANGUAGE sql SECURITY DEFINER SET search_path FROM CURRENT AS $$
    DELETE FROM received_requests
      WHERE seq <= (SELECT max(seq) FROM received_requests) - most_requests;
    DELETE FROM refused_bodies WHERE seq <= (SELECT max(seq) FROM (SELECT seq,
      row_number() OVER newest AS place, sum(size) OVER newest AS bytes
      FROM refused_bodies WINDOW newest AS (ORDER BY seq DESC)) AS kept
      WHERE place > most_bodies OR bytes > most_bytes);
  $$;
  REVOKE EXECUTE ON FUNCTION make_partitions, drop_partitions, trim_requests FROM PUBLIC;
)";

// An event did not happen after it was received, nor before 1970, whatever its sender's clock says.
constexpr const char* views = R"(
  CREATE FUNCTION day_of(at double precision, received_at double precision) RETURNS date
  LANGUAGE sql IMMUTABLE PARALLEL SAFE AS $$
    SELECT (to_timestamp(least(greatest(at, 0), received_at)) AT TIME ZONE 'UTC')::date
  $$;
  CREATE VIEW daily_active_clients AS
    SELECT day_of(timestamp, received_at) AS day, count(DISTINCT client_id) AS clients,
      count(*) AS events
    FROM events GROUP BY 1;
  CREATE VIEW actions_by_name AS
    SELECT data ->> 'action_kind' AS name, count(*) AS actions,
      count(DISTINCT client_id) AS clients
    FROM events WHERE type = 'UserAction' GROUP BY 1;
  CREATE VIEW installs_and_updates AS
    SELECT day, count(*) FILTER (WHERE NOT is_update) AS installs,
      count(*) FILTER (WHERE is_update) AS updates
    FROM (SELECT day_of(timestamp, received_at) AS day,
            coalesce(data ->> 'old_app_version', data ->> 'old_bundle_version') IS NOT NULL
              AS is_update
          FROM events WHERE type = 'Install') AS installed
    GROUP BY 1;
  CREATE VIEW crash_rate AS
    SELECT day, count(*) AS sessions, count(*) FILTER (WHERE crashed) AS crashes,
      (count(*) FILTER (WHERE crashed))::double precision / count(*) AS rate
    FROM (SELECT day_of(timestamp, received_at) AS day, data -> 'crashed' = 'true' AS crashed
          FROM events WHERE type = 'Session' AND data ->> 'subtype' = 'session_end') AS ended
    GROUP BY 1;
)";

// Groups, which operators grant to the users that log in.
constexpr const char* roles = R"(
  DO $$
  DECLARE
    name text;
  BEGIN
    FOREACH name IN ARRAY ARRAY['kite_collector', 'kite_reader'] LOOP
      IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = name) THEN
        EXECUTE format('CREATE ROLE %I NOLOGIN', name);
      END IF;
      EXECUTE format('GRANT USAGE ON SCHEMA %I TO %I', current_schema(), name);
    END LOOP;
  END $$;
  GRANT SELECT ON schema_versions, events, identifiers, requests, clients, type_counts, sessions,
    received_requests, refused_bodies, event_numbers, daily_active_clients, actions_by_name,
    installs_and_updates, crash_rate TO kite_collector, kite_reader;
  GRANT INSERT ON events, identifiers, requests, clients, type_counts, sessions,
    received_requests, refused_bodies TO kite_collector;
  GRANT UPDATE (duplicates) ON events TO kite_collector;
  GRANT UPDATE ON clients, type_counts, sessions TO kite_collector;
  GRANT USAGE ON event_numbers TO kite_collector;
  GRANT EXECUTE ON FUNCTION make_partitions, trim_requests TO kite_collector;
)";

}  // namespace

std::vector<std::string> postgresMigrations() {
  return {std::string(tables) + functions + views + roles};
}

}  // namespace kite::tool
