-- SPDX-License-Identifier: Apache-2.0
-- Devices of a signature to look at: those whose copy has the captured logs of the failure, then
-- those that no boot has cured, then the latest.
SELECT device, max(captured) AS has_logs,
    max(CASE WHEN outcome = 'open' THEN 1 ELSE 0 END) AS is_open, max(begin) AS last_begin
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND signature = :signature
GROUP BY device
ORDER BY has_logs DESC, is_open DESC, last_begin DESC, device
LIMIT :most
