-- SPDX-License-Identifier: Apache-2.0
-- Devices of each country and model, the most frequent ones.
SELECT country, model, count(DISTINCT device) AS seen_devices
FROM devices
WHERE (:country = '' OR country = :country) AND (pulled = '' OR pulled >= :since)
GROUP BY country, model
ORDER BY seen_devices DESC, country, model
LIMIT :most
