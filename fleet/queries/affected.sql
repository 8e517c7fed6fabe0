-- SPDX-License-Identifier: Apache-2.0
-- How many devices each signature was seen on in each country, with some software.
SELECT signature, country, count(DISTINCT device) AS affected_devices
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND signature IN (:signatures)
    AND software IN (:softwares)
GROUP BY signature, country
ORDER BY signature, country
