-- SPDX-License-Identifier: Apache-2.0
-- How many devices each signature was seen on, by their software then.
SELECT signature, software, count(DISTINCT device) AS affected_devices
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND signature IN (:signatures)
GROUP BY signature, software
ORDER BY signature, software
