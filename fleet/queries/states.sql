-- SPDX-License-Identifier: Apache-2.0
-- Devices by their state in the copy that was pulled last. Both engines have max(), and only one
-- has argMax(): the first 36 characters of "seen" order the copies; then come "died" and the state.
SELECT newest_state, count(*) AS devices_then
FROM (
    SELECT substr(max(seen), 37, 100) AS newest_state
    FROM devices
    WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
    GROUP BY device
) AS newest
GROUP BY newest_state
ORDER BY newest_state
