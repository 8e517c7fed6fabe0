-- SPDX-License-Identifier: Apache-2.0
-- Devices by their state in the copy that was pulled last. Both engines have max(), and only one
-- has argMax(): "seen", 36 characters, orders the copies.
SELECT state_then, died_then, count(*) AS devices_then
FROM (
    SELECT device, substr(newest, 38, 100) AS state_then, substr(newest, 37, 1) AS died_then
    FROM (
        SELECT device, max(seen || CASE WHEN died > 0 THEN '1' ELSE '0' END || state) AS newest
        FROM devices
        WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
        GROUP BY device
    ) AS newest_copies
) AS states
GROUP BY state_then, died_then
ORDER BY state_then, died_then
